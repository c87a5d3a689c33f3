#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "System/Data/Secret.hpp"

namespace zephyl {

/// Joins pieces of input into whole lines at a bounded cost. A line ends with LF, and a CR before
/// it belongs to the line end. A line is cut at a limit, at the boundary of a character. Lines that
/// are empty or not valid UTF-8 are dropped. Keeps no copy of the lines that it has returned.
class LineReader {
 public:
  static constexpr std::size_t maxLineBytes = 4096;  ///< the default limit

  explicit LineReader(std::size_t limit = maxLineBytes) : limit_(limit) {}

  /// Returns the lines completed by `bytes`.
  std::vector<std::string> append(std::string_view bytes);

  /// Returns the unterminated line that remains at the end of the input, if there is one.
  std::vector<std::string> finish();

 private:
  /// Returns the current line, including `piece`. The result is valid until the next call.
  std::string_view join(std::string_view piece);
  void keep(std::string_view piece);

  void add(std::vector<std::string>& lines, std::string_view line) const;
  /// Cuts `line` at the limit, before the character that would straddle it.
  [[nodiscard]] std::string_view cut(std::string_view line) const;

  std::size_t limit_;
  SecretString partial_;  // the beginning of a line, long enough to find the cut
};

}  // namespace zephyl

#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "System/Data/Secret.hpp"

namespace zephyl {

/// Joins what arrives in pieces into whole lines, at a bounded cost: a line is cut at
/// a limit (at the boundary of a character) and its rest dropped; a line that is not valid
/// UTF-8 is dropped whole; empty lines are dropped. A line ends with LF; a CR before it is part
/// of the end. It leaves no copy of what it has given out.
class LineReader {
 public:
  static constexpr std::size_t maxLineBytes = 4096;  ///< unless another limit is given

  explicit LineReader(std::size_t limit = maxLineBytes) : limit_(limit) {}

  /// The lines completed by `bytes`.
  std::vector<std::string> append(std::string_view bytes);

  /// The unterminated line that is left when the input has ended, if there is one.
  std::vector<std::string> finish();

 private:
  /// What has come of the line so far, ending with `piece`; valid until the next call.
  std::string_view join(std::string_view piece);
  void keep(std::string_view piece);

  void add(std::vector<std::string>& lines, std::string_view line) const;
  /// Cuts `line` at the limit, before the character that would straddle it.
  [[nodiscard]] std::string_view cut(std::string_view line) const;

  std::size_t limit_;
  SecretString partial_;  // the beginning of a line: enough of it to see where to cut
};

}  // namespace zephyl

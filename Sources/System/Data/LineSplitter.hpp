#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zephyl {

/// Splits a stream of bytes into lines without changing their contents. A line ends with LF, and a
/// CR before it belongs to the line end. A line longer than the limit is skipped whole, so memory
/// use is bounded for any input.
class LineSplitter {
 public:
  explicit LineSplitter(std::size_t maxLineBytes) : maxLineBytes_(maxLineBytes) {}

  /// Removes bytes from the front of `bytes` up to the end of the next line, and returns that line.
  /// Returns nullopt if `bytes` ends before the line does. The line is valid until the next call
  /// and as long as the bytes are.
  std::optional<std::string_view> next(std::string_view& bytes);

  /// Returns the unterminated line that remains at the end of the stream, if there is one.
  std::optional<std::string_view> rest();

 private:
  void keep(std::string_view piece);
  std::optional<std::string_view> complete(std::string_view piece);

  std::size_t maxLineBytes_;
  std::string begun_;      ///< the beginning of a line whose end has not arrived
  std::string line_;       ///< the last returned line, if it arrived in pieces
  bool skipping_ = false;  ///< the current line is too long
};

}  // namespace zephyl

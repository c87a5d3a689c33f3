#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zephyl {

/// Splits a stream of bytes that arrives in pieces into lines, without touching their contents. A
/// line ends with LF; a CR before it is part of the end. A line longer than the limit is skipped
/// whole, so memory stays bounded whatever arrives.
class LineSplitter {
 public:
  explicit LineSplitter(std::size_t maxLineBytes) : maxLineBytes_(maxLineBytes) {}

  /// Takes bytes off the front of `bytes`, up to the end of the next line, and gives that line;
  /// nothing when `bytes` is used up before. The line is valid until the next call and as long as
  /// the bytes are.
  std::optional<std::string_view> next(std::string_view& bytes);

  /// The unterminated line that is left when the stream has ended, if there is one.
  std::optional<std::string_view> rest();

 private:
  void keep(std::string_view piece);
  std::optional<std::string_view> complete(std::string_view piece);

  std::size_t maxLineBytes_;
  std::string begun_;      ///< of a line whose end has not arrived
  std::string line_;       ///< the last line given, when it arrived in pieces
  bool skipping_ = false;  ///< the line under way is too long
};

}  // namespace zephyl

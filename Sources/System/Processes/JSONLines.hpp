#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <string_view>

#include <unistd.h>

#include "System/Data/JSON.hpp"
#include "System/Data/LineSplitter.hpp"
#include "System/Data/Result.hpp"

namespace zephyl {

/// The helper program's side of a `HelperProcess`. Reads and writes messages, one JSON object a
/// line, on two descriptors, which must outlive it. Lines longer than `maxLineBytes` are skipped.
/// Functions block only where stated. Not thread-safe.
class JSONLines {
 public:
  static constexpr std::size_t maxLineBytes = std::size_t{16} << 20;

  explicit JSONLines(int input = STDIN_FILENO, int output = STDOUT_FILENO)
      : input_(input), output_(output), splitter_(maxLineBytes) {}

  /// Waits for the next message. Fails if the input ends first, or if the line is not a `Message`.
  template <typename Message>
  Result<Message> await() {
    while (!hasLine()) {
      if (!receive()) return Error{"the input has ended"};
    }
    return *next<Message>();
  }

  /// Waits for input and reads it. Returns false at the end of the input.
  bool receive();
  /// Returns the next received message, an error if it is not a `Message`, or nullopt if none is
  /// left.
  template <typename Message>
  std::optional<Result<Message>> next() {
    if (!hasLine()) return std::nullopt;
    const std::string line = std::move(lines_.front());
    lines_.pop_front();
    return json::decodeText<Message>(line);
  }
  /// Reads all available input without waiting. Returns whether the input has ended.
  bool inputHasEnded();

  /// Writes a message. Waits while the pipe is full. Does nothing if its reader is gone.
  template <typename Message>
  void write(const Message& message) {
    writeLine(json::compact(json::encode(message)) + '\n');
  }

 private:
  [[nodiscard]] bool hasLine() const { return !lines_.empty(); }
  void writeLine(std::string_view line) const;

  int input_;
  int output_;
  LineSplitter splitter_;
  std::deque<std::string> lines_;  // received and not returned yet
};

}  // namespace zephyl

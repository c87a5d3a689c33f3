#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include <sys/types.h>

#include "System/Data/LineSplitter.hpp"
#include "System/Data/Result.hpp"
#include "System/Files/FileDescriptor.hpp"
#include "ZephylTray/Commands/Protocol/CommandMessages.hpp"

namespace zephyl {

/// Why no tray could be asked.
struct TrayAbsence {
  enum class Kind { notRunning, notAnswering };

  Kind kind = Kind::notRunning;
  std::optional<pid_t> process;  ///< of a tray that does not answer

  /// The message for the user.
  [[nodiscard]] std::string message() const;
};

/// A connection of a client to the running tray. Every operation blocks until its deadline at most.
/// Time is the system's steady clock.
class CommandConnection {
 public:
  using Deadline = std::chrono::steady_clock::time_point;
  enum class End { closed, timedOut };

  /// Connects to the tray of a base directory. One that holds the lock but does not listen yet, or
  /// no longer, is waited for until `deadline`.
  static std::variant<CommandConnection, TrayAbsence> open(const std::string& baseDirectory,
                                                           Deadline deadline);

  /// Sends a whole line. Returns false if the tray has gone or takes nothing until `deadline`.
  [[nodiscard]] bool send(std::string_view line, Deadline deadline);

  /// Waits for the next line of the tray; without a deadline for as long as it takes. A line that
  /// cannot be read counts as an error that the tray has sent.
  std::variant<CommandReply, End> next(std::optional<Deadline> deadline);

 private:
  static constexpr std::size_t maxReplyBytes = std::size_t{8} << 20;

  explicit CommandConnection(FileDescriptor socket) : socket_(std::move(socket)) {}
  bool await(short what, std::optional<Deadline> deadline) const;
  std::optional<CommandReply> buffered();

  FileDescriptor socket_;
  LineSplitter lines_{maxReplyBytes};
  std::string received_;      // the newest piece
  std::string_view pending_;  // what of it has not been split
};

}  // namespace zephyl

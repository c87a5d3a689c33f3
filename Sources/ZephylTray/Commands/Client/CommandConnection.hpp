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

/// The reason why no tray answered.
struct TrayAbsence {
  enum class Kind { notRunning, notAnswering };

  Kind kind = Kind::notRunning;
  std::optional<pid_t> process;  ///< the process of a tray that does not answer

  /// Returns the message for the user.
  [[nodiscard]] std::string message() const;
};

/// A client's connection to the running tray. Every operation blocks until its deadline at most.
/// Uses the system's steady clock.
class CommandConnection {
 public:
  using Deadline = std::chrono::steady_clock::time_point;
  enum class End { closed, timedOut };

  /// Connects to the tray of a base directory. While a tray holds the lock but does not listen,
  /// retries until `deadline`.
  static std::variant<CommandConnection, TrayAbsence> open(const std::string& baseDirectory,
                                                           Deadline deadline);

  /// Sends a whole line. Returns false if the tray has ended or accepts nothing until `deadline`.
  [[nodiscard]] bool send(std::string_view line, Deadline deadline);

  /// Waits for the next line of the tray, without a limit if there is no deadline. A malformed line
  /// is returned as an error reply.
  std::variant<CommandReply, End> next(std::optional<Deadline> deadline);

 private:
  static constexpr std::size_t maxReplyBytes = std::size_t{8} << 20;

  explicit CommandConnection(FileDescriptor socket) : socket_(std::move(socket)) {}
  bool await(short what, std::optional<Deadline> deadline) const;
  std::optional<CommandReply> buffered();

  FileDescriptor socket_;
  LineSplitter lines_{maxReplyBytes};
  std::string received_;      // the last received piece
  std::string_view pending_;  // the part of it that was not split yet
};

}  // namespace zephyl

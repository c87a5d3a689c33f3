#pragma once

#include <chrono>
#include <optional>
#include <string_view>

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>

namespace zephyl::sandbox {

/// Misbehavior on request, to test the tray's reaction.
struct Misbehavior {
  /// Ignore SIGTERM.
  bool ignoresTerm = false;
  /// End without a signal.
  std::optional<std::chrono::milliseconds> exitsAfter = {};
  int exitStatus = 1;
};

/// Ends a run: at SIGTERM, at SIGINT, after a given time, or by `end`. The first of these stops
/// `io` and determines the exit status. While it exists, a signal does not end the process
/// directly.
class Ending {
 public:
  Ending(boost::asio::io_context& io, const Misbehavior& misbehavior);

  /// Logs the line and ends the run.
  void end(int status, std::string_view line);

  [[nodiscard]] int status() const { return status_.value_or(0); }

 private:
  void awaitSignal(bool ignoresTerm);

  boost::asio::io_context& io_;
  boost::asio::signal_set signals_;
  boost::asio::steady_timer time_;
  std::optional<int> status_;
};

}  // namespace zephyl::sandbox

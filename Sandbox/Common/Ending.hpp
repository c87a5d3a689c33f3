#pragma once

#include <chrono>
#include <optional>
#include <string_view>

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>

namespace zephyl::sandbox {

/// Misbehavior on request, to try how the tray reacts to it.
struct Misbehavior {
  /// SIGTERM changes nothing.
  bool ignoresTerm = false;
  /// The program ends by itself.
  std::optional<std::chrono::milliseconds> exitsAfter = {};
  int exitStatus = 1;
};

/// How a run ends: by SIGTERM, SIGINT, after the time that it was given, or by `end`. The first of
/// these stops `io` and decides the exit status. Once constructed, a signal no longer ends the
/// process by itself.
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

#pragma once

#include <chrono>
#include <optional>
#include <string_view>

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>

#include "Common/Result.hpp"

namespace zephyl::sandbox {

/// Misbehaviour to order, for trying out what the tray makes of it.
struct Misbehaviour {
  /// ZEPHYL_SANDBOX_TAILNET_IGNORE_TERM=1: SIGTERM changes nothing.
  bool ignoresTerm = false;
  /// ZEPHYL_SANDBOX_TAILNET_EXIT_AFTER=SECONDS: the program ends by itself, with status 1.
  std::optional<std::chrono::milliseconds> exitsAfter;
};

/// A value in the environment that makes no sense is a failure.
Result<Misbehaviour> misbehaviourFromEnvironment();

/// How a run ends: SIGTERM, SIGINT, the time it was given, or the program's own decision. The first
/// of them stops `io` and decides the exit status. From its construction on, a signal no longer
/// ends the process by itself.
class Ending {
 public:
  Ending(boost::asio::io_context& io, const Misbehaviour& misbehaviour);

  /// Logs the line and ends the run.
  void end(int status, std::string_view line);

  int status() const { return status_.value_or(0); }

 private:
  void awaitSignal(bool ignoresTerm);

  boost::asio::io_context& io_;
  boost::asio::signal_set signals_;
  boost::asio::steady_timer time_;
  std::optional<int> status_;
};

}  // namespace zephyl::sandbox

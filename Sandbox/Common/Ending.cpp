#include "Common/Ending.hpp"

#include <csignal>

#include "Common/Log.hpp"

namespace zephyl::sandbox {

Ending::Ending(boost::asio::io_context& io, const Misbehavior& misbehavior)
    : io_(io), signals_(io, SIGTERM, SIGINT), time_(io) {
  awaitSignal(misbehavior.ignoresTerm);
  if (!misbehavior.exitsAfter) return;
  time_.expires_after(*misbehavior.exitsAfter);
  time_.async_wait([this, status = misbehavior.exitStatus](boost::system::error_code error) {
    if (!error) end(status, formatText("exiting with status {}, as requested", status));
  });
}

void Ending::end(int status, std::string_view line) {
  if (status_) return;
  logLine(line);
  status_ = status;
  io_.stop();
}

void Ending::awaitSignal(bool ignoresTerm) {
  signals_.async_wait([this, ignoresTerm](boost::system::error_code error, int signal) {
    if (error) return;
    if (signal == SIGTERM && ignoresTerm) {
      logLine("SIGTERM ignored, as asked");
      awaitSignal(ignoresTerm);
      return;
    }
    end(0, signal == SIGTERM ? "stopping (SIGTERM)" : "stopping (SIGINT)");
  });
}

}  // namespace zephyl::sandbox

#include "Tailnet/Common/Ending.hpp"

#include <charconv>
#include <cmath>
#include <csignal>
#include <cstdlib>

#include "Common/Log.hpp"

namespace zephyl::sandbox {
namespace {

std::string_view environment(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : std::string_view();
}

std::optional<std::chrono::milliseconds> parseSeconds(std::string_view text) {
  constexpr double most = 1e9;
  double seconds = -1;
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), seconds);
  const bool whole = failure == std::errc() && end == text.data() + text.size();
  if (!whole || !(seconds >= 0 && seconds <= most)) return std::nullopt;
  return std::chrono::milliseconds(std::llround(seconds * 1000));
}

}  // namespace

Result<Misbehaviour> misbehaviourFromEnvironment() {
  Misbehaviour misbehaviour{.ignoresTerm =
                                environment("ZEPHYL_SANDBOX_TAILNET_IGNORE_TERM") == "1"};
  const auto exitAfter = environment("ZEPHYL_SANDBOX_TAILNET_EXIT_AFTER");
  if (exitAfter.empty()) return misbehaviour;
  misbehaviour.exitsAfter = parseSeconds(exitAfter);
  if (misbehaviour.exitsAfter) return misbehaviour;
  return Failure{"ZEPHYL_SANDBOX_TAILNET_EXIT_AFTER must be a number of seconds"};
}

Ending::Ending(boost::asio::io_context& io, const Misbehaviour& misbehaviour)
    : io_(io), signals_(io, SIGTERM, SIGINT), time_(io) {
  awaitSignal(misbehaviour.ignoresTerm);
  if (!misbehaviour.exitsAfter) return;
  time_.expires_after(*misbehaviour.exitsAfter);
  time_.async_wait([this](boost::system::error_code error) {
    if (!error) end(1, "exiting with status 1, as asked");
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

#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <utility>
#include <variant>

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>

#include "Agent/Agent.hpp"
#include "Agent/Server.hpp"
#include "Agent/Settings.hpp"
#include "Agent/StateFile.hpp"
#include "Common/Log.hpp"

namespace zephyl::sandbox {
namespace {

namespace asio = boost::asio;
using namespace std::chrono_literals;

/// How long answers and streams have to come to an end when the agent stops.
constexpr auto farewell = 300ms;
constexpr int usageStatus = 2;

int fail(const Rejection& failure, int status) {
  fmt::print(stderr, "zephyl-agent: {}\n", failure.message);
  return status;
}

/// What ends a run: a signal, or the time that it was given.
class Ending {
 public:
  Ending(asio::io_context& io, const Settings& settings)
      : signals_(io, SIGTERM, SIGINT), time_(io) {
    signals_.async_wait([this, &io](boost::system::error_code error, int signal) {
      if (!error) end(io, 0, signal == SIGTERM ? "stopping (SIGTERM)" : "stopping (SIGINT)");
    });
    if (!settings.exitAfter) return;
    time_.expires_after(*settings.exitAfter);
    time_.async_wait([this, &io, status = settings.exitStatus](boost::system::error_code error) {
      if (!error) end(io, status, fmt::format("exiting with status {}, as asked", status));
    });
  }

  int status() const { return status_; }

 private:
  void end(asio::io_context& io, int status, std::string_view line) {
    logLine(line);
    status_ = status;
    io.stop();
  }

  asio::signal_set signals_;
  asio::steady_timer time_;
  int status_ = 0;
};

int serve(const Settings& settings) {
  asio::io_context io(1);
  // The port first: whoever has it may still be using the state.
  auto acceptor = listenOn(io, settings.port);
  if (!acceptor) return fail(acceptor.error(), 1);
  const auto file = StateFile::open(settings.stateDirectory);
  if (!file) return fail(file.error(), 1);
  const auto port = acceptor->local_endpoint().port();
  if (settings.standalone) log("running from the packaged runtime");

  Ending ending(io, settings);
  Agent agent(io, settings, *file);
  Server server(io, *std::move(acceptor), agent, settings.streamKeepAlive);
  log("listening on 127.0.0.1:{}", port);
  io.run();

  agent.save();
  server.stop();
  io.restart();
  const auto deadline = std::chrono::steady_clock::now() + farewell;
  while (!server.idle() && io.run_one_until(deadline) > 0) {
  }
  log("stopped");
  return ending.status();
}

int run(int argc, char** argv) {
  const auto invocation = readSettings(argc, argv);
  if (!invocation) return fail(invocation.error(), usageStatus);
  if (const auto* notice = std::get_if<Notice>(&*invocation)) {
    fmt::print("{}", notice->text);
    return 0;
  }
  const auto& settings = std::get<Settings>(*invocation);
  if (settings.exitAfter == 0ms) {
    log("exiting with status {}, as asked", settings.exitStatus);
    return settings.exitStatus;
  }
  return serve(settings);
}

}  // namespace
}  // namespace zephyl::sandbox

int main(int argc, char** argv) {
  // A client or a reader of the log that goes away is an error of that write, no reason to die.
  std::signal(SIGPIPE, SIG_IGN);
  try {
    return zephyl::sandbox::run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zephyl-agent: %s\n", error.what());
    return 1;
  }
}

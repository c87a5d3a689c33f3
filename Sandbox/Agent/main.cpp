#include <boost/asio/io_context.hpp>

#include "Agent/Agent.hpp"
#include "Agent/Api.hpp"
#include "Agent/EventStream.hpp"
#include "Agent/Settings.hpp"
#include "Common/Endpoint.hpp"
#include "Common/Log.hpp"

namespace zephyl::sandbox {
namespace {

namespace asio = boost::asio;
using namespace std::chrono_literals;

/// The time-out for answers and streams when the agent stops.
constexpr auto stopTimeout = 300ms;
constexpr HTTPServer::Options serverOptions{
    .maxConnections = 256, .maxBodyBytes = 16'384, .requestTimeout = 60s, .answerTimeout = 10s};

/// The agent's API and its event stream over HTTP.
class Service {
 public:
  Service(Agent& agent, std::chrono::milliseconds keepAlive)
      : agent_(agent),
        keepAlive_(keepAlive),
        server_(
            serverOptions,
            {.answer = [this](const HTTPRequest& request,
                              boost::beast::tcp_stream& stream) { return answer(request, stream); },
             .refuse = errorResponse}) {}

  HTTPServer& server() { return server_; }

 private:
  asio::awaitable<std::optional<HTTPResponse>> answer(const HTTPRequest& request,
                                                      boost::beast::tcp_stream& stream) {
    if (!isFromThisMachine(request)) {
      auto refusal = errorResponse(403, "only programs of this machine may ask");
      refusal.keep_alive(false);
      co_return refusal;
    }
    const bool isGet = request.method() == boost::beast::http::verb::get;
    if (!isGet || pathOf(request) != "/api/events") {
      co_return co_await answerRequest(agent_, request);
    }
    co_await serveEvents(agent_, server_, request, stream, keepAlive_);
    co_return std::nullopt;
  }

  Agent& agent_;
  std::chrono::milliseconds keepAlive_;
  HTTPServer server_;
};

Result<int> serve(const Settings& settings) {
  if (settings.misbehavior.exitsAfter == 0ms) {
    log("exiting with status {}, as requested", settings.misbehavior.exitStatus);
    return settings.misbehavior.exitStatus;
  }
  asio::io_context io(1);
  // Opens the port first, because a program that uses it may still use the state.
  auto acceptor = listenOn(io.get_executor(), {asio::ip::address_v4::loopback(), settings.port});
  if (!acceptor) return acceptor.error();
  const auto file = StateFile::open(settings.stateDirectory, "state.json");
  if (!file) return file.error();
  const auto port = acceptor->local_endpoint().port();
  if (settings.standalone) logLine("running from the packaged runtime");

  Ending ending(io, settings.misbehavior);
  Agent agent(io.get_executor(), settings, *file);
  Service service(agent, settings.streamKeepAlive);
  service.server().start(*std::move(acceptor));
  log("listening on 127.0.0.1:{}", port);
  io.run();

  agent.save();
  service.server().stop();
  agent.changes().notify();
  io.restart();
  const auto deadline = steady_clock::now() + stopTimeout;
  while (!service.server().isIdle() && io.run_one_until(deadline) > 0) {
  }
  logLine("stopped");
  return ending.status();
}

}  // namespace
}  // namespace zephyl::sandbox

int main(int argc, char** argv) {
  using namespace zephyl::sandbox;
  return runProgram(agentProgram, std::span(argv, argc), readSettings, serve);
}

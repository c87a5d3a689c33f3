#include <cstddef>
#include <memory>
#include <string>
#include <utility>

#include <boost/asio/io_context.hpp>
#include <boost/describe/class.hpp>
#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include "Common/Async.hpp"
#include "Common/Endpoint.hpp"
#include "Common/Log.hpp"
#include "Common/StateFile.hpp"
#include "System/Data/JSON.hpp"
#include "Tailnet/Common/Control.hpp"
#include "Tailnet/Daemon/Settings.hpp"
#include "Tailnet/Daemon/SocksProxy.hpp"

namespace zephyl::sandbox {
namespace {

namespace asio = boost::asio;

/// Each may use two descriptors, so that the usual limit of 1024 suffices.
constexpr std::size_t maxSocksClients = 256;
constexpr std::size_t maxControlClients = 32;

struct Node {
  std::string node;
};
BOOST_DESCRIBE_STRUCT(Node, (), (node))

/// Returns the identity of the node in this state directory. It is random at the first start and
/// stored in `node.json`.
Result<std::string> nodeIn(const std::string& stateDirectory) {
  const auto file = StateFile::open(stateDirectory, "node.json");
  if (!file) return file.error();
  if (const auto saved = file->load<Node>()) return saved->node;
  const Node fresh{.node = to_string(boost::uuids::random_generator()())};
  if (const auto saved = file->save(json::encode(fresh)); !saved) return saved.error();
  return fresh.node;
}

/// Logs each refused destination once while a client keeps retrying it.
std::shared_ptr<const OnRefusal> refusalLog() {
  return std::make_shared<const OnRefusal>(
      [last = std::string()](const std::string& destination) mutable {
        if (destination == last) return;
        log("refused a connection to {}: not on this machine", destination);
        last = destination;
      });
}

Result<int> serve(const Settings& settings) {
  asio::io_context io(1);
  Ending ending(io, settings.misbehavior);
  const auto executor = io.get_executor();
  auto proxy = listenOn(executor, settings.socks5);
  if (!proxy) return proxy.error();
  auto control = listenOnLocal(executor, settings.controlSocket);
  if (!control) return control.error();
  const auto node = nodeIn(settings.stateDirectory);
  if (!node) return node.error();

  const control::Status status{.running = true, .node = *node};
  spawnAcceptor(*std::move(proxy), maxSocksClients,
                [onRefusal = refusalLog()](asio::ip::tcp::socket socket) {
                  return serveSocks(std::move(socket), onRefusal);
                });
  spawnAcceptor(
      std::move(control->acceptor), maxControlClients,
      [status](LocalProtocol::socket socket) { return control::serve(std::move(socket), status); });
  log("node {}", *node);
  log("SOCKS5 proxy on {}", toText(settings.socks5));
  log("control socket at {}", settings.controlSocket);
  io.run();
  logLine("stopped");
  return ending.status();
}

}  // namespace
}  // namespace zephyl::sandbox

int main(int argc, char** argv) {
  using namespace zephyl::sandbox;
  return runProgram(daemonProgram, std::span(argv, argc), readSettings, serve);
}

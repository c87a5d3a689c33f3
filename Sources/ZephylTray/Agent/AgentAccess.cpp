#include "ZephylTray/Agent/AgentAccess.hpp"

#include <utility>

#include "ZephylTray/Agent/ActivityStream.hpp"
#include "ZephylTray/Config/Config.hpp"

namespace zephyl {

namespace {

HTTPSession verifiedSession(Reactor& reactor, std::shared_ptr<AgentPeer> peer) {
  return {reactor,
          {.requestTimeout = AgentAccess::requestTimeout,
           .onConnected = [peer = std::move(peer)](
                              const std::string& address,
                              std::uint16_t port) { return peer->verify(address, port); },
           .keepsConnection = true}};
}

}  // namespace

AgentAccess::AgentAccess(const Runtime& runtime, std::int64_t port)
    : runtime_(runtime),
      port_(port),
      client_(runtime.mainLoop, Config::apiBaseURL(port), verifiedSession(runtime.reactor, peer_)) {
}

AgentMonitor::Port AgentAccess::monitorPort() const {
  AgentMonitor::Port port;
  port.poll = [client = client_](auto done) { client.poll(std::move(done)); };
  port.followEvents = [runtime = runtime_, url = client_.base() + "/api/events",
                       peer = peer_](auto onActivity) {
    return std::make_shared<ActivityStream>(runtime, url, peer, std::move(onActivity));
  };
  port.forgetPeer = [peer = peer_] { peer->forget(); };
  return port;
}

}  // namespace zephyl

#pragma once

#include <cstdint>
#include <memory>

#include "System/Concurrency/Runtime.hpp"
#include "ZephylTray/Agent/AgentClient.hpp"
#include "ZephylTray/Agent/AgentMonitor.hpp"
#include "ZephylTray/Agent/AgentPeer.hpp"

namespace zephyl {

/// How the tray reaches the agent on the loopback interface: a client with the tray's time-outs,
/// whose connections count only if the program that listens belongs to this user or to root.
class AgentAccess {
 public:
  static constexpr Duration requestTimeout = std::chrono::seconds(4);

  /// `port` is where the agent listens. What `runtime` refers to outlives this.
  AgentAccess(const Runtime& runtime, std::int64_t port);

  [[nodiscard]] std::int64_t port() const { return port_; }
  [[nodiscard]] const AgentClient& client() const { return client_; }
  /// The agent as the monitor asks it. May outlive this.
  [[nodiscard]] AgentMonitor::Port monitorPort() const;

 private:
  const Runtime runtime_;
  const std::int64_t port_;
  const std::shared_ptr<AgentPeer> peer_ = std::make_shared<AgentPeer>();
  const AgentClient client_;
};

}  // namespace zephyl

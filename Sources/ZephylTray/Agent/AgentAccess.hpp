#pragma once

#include <cstdint>
#include <memory>

#include "System/Concurrency/Runtime.hpp"
#include "ZephylTray/Agent/AgentClient.hpp"
#include "ZephylTray/Agent/AgentMonitor.hpp"
#include "ZephylTray/Agent/AgentPeer.hpp"

namespace zephyl {

/// The tray's access to the agent on the loopback interface: a client with the tray's time-outs. A
/// connection is used only if the listening program belongs to this user or to root.
class AgentAccess {
 public:
  static constexpr Duration requestTimeout = std::chrono::seconds(4);

  /// `port` is the agent's port. The objects that `runtime` refers to must outlive this.
  AgentAccess(const Runtime& runtime, std::int64_t port);

  [[nodiscard]] std::int64_t port() const { return port_; }
  [[nodiscard]] const AgentClient& client() const { return client_; }
  /// Returns the monitor's port. It may outlive this.
  [[nodiscard]] AgentMonitor::Port monitorPort() const;

 private:
  const Runtime runtime_;
  const std::int64_t port_;
  const std::shared_ptr<AgentPeer> peer_ = std::make_shared<AgentPeer>();
  const AgentClient client_;
};

}  // namespace zephyl

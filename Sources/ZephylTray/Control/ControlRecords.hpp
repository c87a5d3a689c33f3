#pragma once

#include <optional>
#include <string>

/// What the control API tells, as plain values (see System/JSON.hpp for how they encode). What is
/// not known is left out.
namespace zephyl {

/// The answer of GET /status.
struct ControlStatus {
  bool available = false;            ///< both tailnet programs are there
  bool enrolled = false;             ///< an invite has been redeemed on this machine
  bool running = false;              ///< a tailnet runs
  std::optional<std::string> url;    ///< the primary server's web address
  std::optional<std::string> relay;  ///< what its connection goes through

  template <typename Self, typename Fields>
  static void describe(Self& self, Fields& fields) {
    fields("available", self.available);
    fields("enrolled", self.enrolled);
    fields("running", self.running);
    fields("url", self.url);
    fields("relay", self.relay);
  }
};

/// One element of GET /servers.
struct ControlServerRecord {
  std::string id;
  std::string name;   ///< as shown
  std::string label;  ///< as the user set it
  bool nameResolved = false;
  std::string accent;       ///< as shown
  std::string localAccent;  ///< as the user set it
  bool enabled = false;
  bool usesTailnet = false;
  bool running = false;   ///< its tailnet runs
  bool enrolled = false;  ///< the agent is connected to it
  std::optional<std::string> agentError;
  std::optional<std::string> serverName;
  std::optional<std::string> serverAccent;
  std::optional<std::string> boundAddress;
  std::optional<std::string> webUrl;
  std::optional<std::string> relay;
  std::optional<std::string> addressUnresolved;
  std::optional<std::string> enrolError;
  std::optional<std::string> tailnetStalled;

  template <typename Self, typename Fields>
  static void describe(Self& self, Fields& fields) {
    fields("id", self.id);
    fields("name", self.name);
    fields("label", self.label);
    fields("nameResolved", self.nameResolved);
    fields("accent", self.accent);
    fields("localAccent", self.localAccent);
    fields("enabled", self.enabled);
    fields("usesTailnet", self.usesTailnet);
    fields("running", self.running);
    fields("enrolled", self.enrolled);
    fields("agentError", self.agentError);
    fields("serverName", self.serverName);
    fields("serverAccent", self.serverAccent);
    fields("boundAddress", self.boundAddress);
    fields("webUrl", self.webUrl);
    fields("relay", self.relay);
    fields("addressUnresolved", self.addressUnresolved);
    fields("enrolError", self.enrolError);
    fields("tailnetStalled", self.tailnetStalled);
  }
};

}  // namespace zephyl

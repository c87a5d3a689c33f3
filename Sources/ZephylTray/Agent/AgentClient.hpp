#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "System/Concurrency/MainLoop.hpp"
#include "System/Data/JSON.hpp"
#include "System/Data/Result.hpp"
#include "System/Network/HTTPSession.hpp"
#include "ZephylTray/Agent/AgentRecords.hpp"
#include "ZephylTray/Agent/AgentSnapshot.hpp"

namespace zephyl {

/// The reason why a request to the agent failed: the agent's own message, "request failed
/// (<status>)" if it sent none, or the transport error.
using APIError = Error;

/// A client of the agent's JSON API on the loopback interface. Each operation corresponds to one
/// endpoint and sends one request, without retries. Only `poll` sends three.
///
/// An immutable value. Copies share the session. Operations are callable from any thread and run
/// concurrently. Answers are decoded on the reactor's thread. Each operation calls its completion
/// once, on the main loop, unless the loop is closed.
class AgentClient {
 public:
  template <typename T>
  using Completion = std::function<void(Result<T>)>;

  /// `base` is the agent's address, such as "http://127.0.0.1:8799". `mainLoop` must outlive the
  /// requests.
  AgentClient(MainLoop& mainLoop, std::string base, HTTPSession session)
      : mainLoop_(&mainLoop), base_(std::move(base)), session_(std::move(session)) {}

  [[nodiscard]] const std::string& base() const { return base_; }

  /// Requests status, folders and activity, one after the other. Fails with the first of status and
  /// folders that fails.
  void poll(Completion<AgentPoll> done) const;
  void getRoots(Completion<std::vector<SharedRoot>> done) const;

  /// Sends `name` and `servers` only if they are not empty.
  void addRoot(const std::string& path, const std::optional<std::string>& name,
               const std::vector<std::string>& servers,
               Completion<std::vector<SharedRoot>> done) const;
  void removeRoot(const std::string& path, Completion<std::vector<SharedRoot>> done) const;
  void setRootServers(const std::string& path, const std::vector<std::string>& servers,
                      Completion<std::vector<SharedRoot>> done) const;

  /// `decision` is "approve", "always" or "deny".
  void decideApproval(const std::string& id, const std::string& decision,
                      const std::optional<std::string>& confirm, Completion<void> done) const;
  void revokeEscapeGrant(const std::string& kind, const std::string& path,
                         Completion<std::vector<EscapeGrant>> done) const;

 private:
  using Answer = std::function<void(Result<std::string>)>;

  /// Wraps a completion so that it runs on the main loop.
  template <typename T>
  [[nodiscard]] Completion<T> onMainLoop(Completion<T> done) const {
    return mainLoop_->later(std::move(done));
  }
  void get(const std::string& path, Answer done) const;
  void sendJSON(std::string method, const std::string& path, const json::Object& body,
                Answer done) const;

  MainLoop* mainLoop_;
  std::string base_;
  HTTPSession session_;
};

}  // namespace zephyl

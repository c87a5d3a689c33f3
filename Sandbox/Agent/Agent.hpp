#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>

#include "Agent/Approvals.hpp"
#include "Agent/Connections.hpp"
#include "Agent/Folders.hpp"
#include "Agent/Index/Indexer.hpp"
#include "Agent/Journal.hpp"
#include "Agent/Records.hpp"
#include "Agent/Settings.hpp"
#include "Agent/Simulation.hpp"
#include "Common/Async.hpp"
#include "Common/StateFile.hpp"

namespace zephyl::sandbox {

/// The agent itself, which connects its parts: shared folders, held requests, model, connections.
/// Every operation is written to the log and to the activity. Must be used on the thread of its
/// executor. Only the index has its own thread.
///
/// The agent is busy while a folder is being indexed or embedded, while a request is held or a
/// search is running, and after `forceBusy`. Embedding begins when the model is ready. Folders,
/// exceptions and machine identity are saved whenever they change.
class Agent {
 public:
  Agent(const boost::asio::any_io_executor& executor, const Settings& settings,
        const StateFile& file);
  Agent(const Agent&) = delete;
  Agent& operator=(const Agent&) = delete;

  [[nodiscard]] json::Object status() const;
  [[nodiscard]] json::Object roots() const;
  [[nodiscard]] json::Object grants() const;

  /// The activity record as JSON. Returns the same object until something in it changes.
  std::shared_ptr<const std::string> activity();

  /// Notifies when the activity may have changed.
  Changes& changes() { return snapshot_.changes; }

  /// `root` must be canonical.
  Result<void> share(const std::string& root, const std::optional<std::string>& name,
                     const std::optional<std::vector<std::string>>& servers);
  Result<void> unshare(const std::string& path);
  Result<void> setServers(const std::string& path, const std::vector<std::string>& servers);

  [[nodiscard]] const Folders& folders() const { return folders_; }
  [[nodiscard]] const Approvals& approvals() const { return approvals_; }

  /// Returns the id under which the request is held; nullopt when an exception lets it pass.
  Result<std::optional<std::string>> raise(PendingApproval request);
  Result<void> decide(std::string_view id, Decision decision);
  Result<void> withdraw(std::string_view id);
  Result<void> revoke(std::string_view kind, std::string_view path);

  /// Zero ends it.
  void forceBusy(std::chrono::milliseconds duration);

  /// Returns the paths of files that hold the word.
  boost::asio::awaitable<std::vector<std::string>> search(std::string word);

  void save();

 private:
  /// The activity record as it was last encoded.
  struct Snapshot {
    Changes changes;
    std::shared_ptr<const std::string> text = {};
    bool isOutdated = true;
  };

  Agent(const boost::asio::any_io_executor& executor, const Settings& settings,
        const StateFile& file, const State& state);

  [[nodiscard]] json::Object describeActivity() const;
  [[nodiscard]] bool isBusy() const;

  void onReport(const IndexReport& report);
  void onConnection(const AgentConnection& connection);
  void onModelSettled();
  void onEmbedded(const std::vector<SharedRoot>& folders);
  void noteSettled(const PendingApproval& request, std::string_view verdict,
                   std::string_view counter);

  void announce();

  StateFile file_;
  std::string machineId_;
  bool isModelSaved_;
  Journal journal_;
  Folders folders_;
  Approvals approvals_;
  Simulation simulation_;
  int searches_ = 0;
  Snapshot snapshot_;

  Connections connections_;
  Indexer indexer_;
};

}  // namespace zephyl::sandbox

#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/json.hpp>

#include "Agent/Approvals.hpp"
#include "Agent/Connections.hpp"
#include "Agent/EmbeddingModel.hpp"
#include "Agent/Folders.hpp"
#include "Agent/Indexer.hpp"
#include "Agent/Journal.hpp"
#include "Agent/Outcome.hpp"
#include "Agent/Records.hpp"
#include "Agent/Settings.hpp"
#include "Agent/Signal.hpp"
#include "Agent/StateFile.hpp"

namespace zephyl::sandbox {

/// The agent itself, where its parts meet: shared folders, held requests, model, connections. Each
/// thing that may be asked of it is one member function; what it does it tells in the log and in
/// its activity. Lives on the thread of its `io`; only indexing happens elsewhere.
///
/// Busy means that a folder is being indexed or embedded, that a request is in flight (held
/// requests are, their makers wait), or that it was told to be. Embedding begins when the model is
/// ready. Folders, exceptions and machine identity are saved whenever they change.
class Agent {
 public:
  Agent(boost::asio::io_context& io, const Settings& settings, const StateFile& file);
  Agent(const Agent&) = delete;
  Agent& operator=(const Agent&) = delete;

  boost::json::object status() const;
  boost::json::object roots() const;
  boost::json::object grants() const;

  /// The activity record as JSON. As long as nothing in it changes, the same object.
  std::shared_ptr<const std::string> activity();

  /// Raised when the activity may have changed.
  Signal& changed() { return changed_; }

  Outcome<void> share(const std::string& path, const std::optional<std::string>& name,
                      const std::optional<std::vector<std::string>>& servers);
  Outcome<void> unshare(const std::string& path);
  Outcome<void> setServers(const std::string& path, const std::vector<std::string>& servers);

  /// The root that a request names, or the first shared folder when it names none.
  Outcome<std::string> requestRoot(const std::optional<std::string>& path) const;

  /// Answers with the id under which the request is held; none when an exception lets it pass.
  Outcome<std::optional<std::string>> raise(PendingApproval request);
  Outcome<void> decide(std::string_view id, Decision decision);
  Outcome<void> withdraw(std::string_view id);
  Outcome<RequestState> requestState(const std::string& id) const;
  Outcome<void> revoke(std::string_view kind, std::string_view path);

  /// Zero ends it.
  void forceBusy(std::chrono::milliseconds duration);

  /// Answers with the paths of files that hold the word.
  void search(const std::string& word, Indexer::OnFound onFound);

  void save();

 private:
  static State loadState(const StateFile& file, const Settings& settings);
  static EmbeddingModel makeModel(const State& state, const Settings& settings);

  Agent(boost::asio::io_context& io, const Settings& settings, const StateFile& file,
        const State& state);

  boost::json::object describeActivity() const;
  bool forcedBusy() const;
  bool busy() const;

  void onReport(const IndexReport& report);
  void onConnection(const AgentConnection& connection);
  void noteSettled(const PendingApproval& request, std::string_view verdict,
                   std::string_view counter);

  /// Lets the simulated work go on as long as there is any.
  void keepTicking();
  void advance(double seconds);
  void advanceModel(double seconds);
  void announce();

  StateFile file_;
  std::string machineId_;
  double filesEmbeddedPerSecond_;
  bool modelRemembered_;
  Journal journal_;
  Folders folders_;
  Approvals approvals_;
  EmbeddingModel model_;
  int searches_ = 0;
  std::optional<std::chrono::steady_clock::time_point> busyUntil_;

  std::shared_ptr<const std::string> snapshot_;
  bool snapshotOutdated_ = true;
  Signal changed_;
  boost::asio::steady_timer tick_;
  bool ticking_ = false;

  Connections connections_;
  Indexer indexer_;
};

}  // namespace zephyl::sandbox

#pragma once

#include <cstdint>
#include <memory>
#include <mutex>

#include "System/Processes/ChildProcess.hpp"

namespace zephyl {

/// The two children of one start of a tailnet: the overlay daemon, and the client that uses it.
///
/// Callable from any thread; no operation waits. Owns the handles of the children, not the
/// children: they go on running when it is destroyed.
class TailnetPair {
 public:
  using Child = std::shared_ptr<ChildProcess>;

  void setDaemon(Child daemon);
  void setClient(Child client);

  [[nodiscard]] Child daemon() const;
  [[nodiscard]] Child client() const;
  /// Whether both children run and neither is meant to end.
  [[nodiscard]] bool isRunning() const;
  /// The child to wait for next when the pair ends: the client while it runs, then the daemon while
  /// it runs, then null.
  [[nodiscard]] Child nextToEnd() const;

  /// Marks the pair as ended: what its children do from now on changes no state.
  void markEnded();
  /// Marks the pair as ended because a child failed.
  void markFailed();
  [[nodiscard]] bool isEnded() const;
  [[nodiscard]] bool hasFailed() const;

  /// Which pre-authorisation key the client was given; 0 if none.
  void setKeyNumber(std::uint64_t number);
  [[nodiscard]] std::uint64_t keyNumber() const;

  /// Marks the pair as ended and sends SIGTERM to each child that has not had one.
  void askToEnd();

 private:
  mutable std::mutex mutex_;  // guards what follows
  Child daemon_;
  Child client_;
  bool ended_ = false;
  bool failed_ = false;
  bool daemonAsked_ = false;
  bool clientAsked_ = false;
  std::uint64_t keyNumber_ = 0;
};

}  // namespace zephyl

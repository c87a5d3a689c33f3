#pragma once

#include <cstdint>
#include <memory>
#include <mutex>

#include "System/Processes/ChildProcess.hpp"

namespace zephyl {

/// The two children of one start of a tailnet: the overlay daemon and its client.
///
/// Callable from any thread. No operation waits. Owns the handles, not the children, which continue
/// to run when it is destroyed.
class TailnetPair {
 public:
  using Child = std::shared_ptr<ChildProcess>;

  void setDaemon(Child daemon);
  void setClient(Child client);

  [[nodiscard]] Child daemon() const;
  [[nodiscard]] Child client() const;
  /// Returns whether both children run and neither should end.
  [[nodiscard]] bool isRunning() const;
  /// Returns the child to wait for next when the pair ends: the client while it runs, then the
  /// daemon while it runs, then null.
  [[nodiscard]] Child nextToEnd() const;

  /// Marks the pair as ended. Later events of its children change no state.
  void markEnded();
  /// Marks the pair as ended because a child failed.
  void markFailed();
  [[nodiscard]] bool isEnded() const;
  [[nodiscard]] bool hasFailed() const;

  /// Sets the number of the pre-authorisation key that the client received, 0 for no key.
  void setKeyNumber(std::uint64_t number);
  [[nodiscard]] std::uint64_t keyNumber() const;

  /// Marks the pair as ended and sends SIGTERM to each child that has not received it yet.
  void requestEnd();

 private:
  mutable std::mutex mutex_;  // guards all other members
  Child daemon_;
  Child client_;
  bool ended_ = false;
  bool failed_ = false;
  bool daemonSignalled_ = false;
  bool clientSignalled_ = false;
  std::uint64_t keyNumber_ = 0;
};

}  // namespace zephyl

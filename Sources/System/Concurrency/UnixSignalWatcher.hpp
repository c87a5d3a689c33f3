#pragma once

#include <functional>
#include <initializer_list>
#include <memory>

namespace zephyl {

class Reactor;

/// Catches signals sent to the process and reports each one on the reactor's thread while it
/// exists. `reactor` must outlive it.
class UnixSignalWatcher {
 public:
  UnixSignalWatcher(Reactor& reactor, std::initializer_list<int> signals,
                    std::function<void(int signal)> onSignal);
  ~UnixSignalWatcher();
  UnixSignalWatcher(const UnixSignalWatcher&) = delete;
  UnixSignalWatcher& operator=(const UnixSignalWatcher&) = delete;

 private:
  class Watch;
  std::shared_ptr<Watch> watch_;
  Reactor& reactor_;
};

}  // namespace zephyl

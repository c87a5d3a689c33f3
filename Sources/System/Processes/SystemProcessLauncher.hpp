#pragma once

#include <memory>

#include "System/Processes/ChildProcess.hpp"

namespace zephyl {

class Guardian;
class Reactor;

/// Starts real children. They are forked on the reactor's thread, watched through a pidfd, and
/// those tied to the tray are entrusted to the guardian as well. `launch` may be called from any
/// thread; from the reactor's own it holds the reactor up until the program runs.
///
/// A child gets standard input from /dev/null or a pipe, its output pipes, and nothing else; its
/// signal mask and dispositions are the defaults. When a tied child ends, what is left of its
/// process group is killed before the child is reaped, so that no grandchild stays behind or holds
/// the pipe. Of an independent child, which leads a session of its own, nothing else is touched;
/// what its descendants still write after its end is not read.
///
/// Children are reaped here and nowhere else: the process must not ignore SIGCHLD. Where children
/// have input it must ignore SIGPIPE.
class SystemProcessLauncher final : public ProcessLauncher {
 public:
  /// The reactor outlives the launcher, the guardian outlives the reactor. Children may outlive
  /// all of them; once the reactor is gone nobody sees them end.
  SystemProcessLauncher(Reactor& reactor, Guardian& guardian)
      : reactor_(reactor), guardian_(guardian) {}

  [[nodiscard]] Result<std::shared_ptr<ChildProcess>> launch(ProcessOptions options) override;

 private:
  Reactor& reactor_;
  Guardian& guardian_;
};

}  // namespace zephyl

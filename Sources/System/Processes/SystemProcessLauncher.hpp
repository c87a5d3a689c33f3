#pragma once

#include <memory>

#include "System/Processes/ChildProcess.hpp"

namespace zephyl {

class Guardian;
class Reactor;

/// Starts real children. They are forked on the reactor's thread and watched through a pidfd. Tied
/// children are also registered with the guardian. `launch` is callable from any thread. On the
/// reactor's own thread it blocks the reactor until the program runs.
///
/// A child gets standard input from /dev/null or a pipe, its output pipes, the default signal mask
/// and dispositions, and no other descriptor. When a tied child ends, the rest of its process group
/// is killed before the child is reaped, so that no grandchild survives or holds the pipe open. An
/// independent child leads a session of its own. When it ends, its descendants are left alone, and
/// their later output is not read.
///
/// All children are reaped here, so the process must not ignore SIGCHLD. If children have input, it
/// must ignore SIGPIPE.
class SystemProcessLauncher final : public ProcessLauncher {
 public:
  /// The reactor must outlive the launcher, and the guardian the reactor. Children may outlive all
  /// of them. Without the reactor nothing observes their end.
  SystemProcessLauncher(Reactor& reactor, Guardian& guardian)
      : reactor_(reactor), guardian_(guardian) {}

  [[nodiscard]] Result<std::shared_ptr<ChildProcess>> launch(ProcessOptions options) override;

 private:
  Reactor& reactor_;
  Guardian& guardian_;
};

}  // namespace zephyl

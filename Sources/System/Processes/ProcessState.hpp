#pragma once

namespace zephyl {

/// The process state that the rest of the program relies on. The parent process determines
/// descriptors, signals and limits, and they survive exec.

/// Establishes that state:
/// - descriptors 0 to 2 are open, on /dev/null if they were closed, so that no other file becomes a
///   standard descriptor;
/// - SIGCHLD has its default action, which is required to wait for children;
/// - SIGPIPE is ignored;
/// - the soft limit of open descriptors equals the hard one.
///
/// Must be called first in `main`, before a descriptor is opened or a thread is started. Does not
/// change the signal mask (see `EndSignals::block`).
void establishProcessState();

/// Returns whether SIGHUP was ignored when the program was started, as by `nohup`. Then the program
/// must not end at a hang-up.
bool hangUpIsIgnored();

/// Restores the original limit of descriptors before this process executes another program, because
/// some programs cannot handle a high limit. Async-signal-safe.
void restoreDescriptorLimit();

}  // namespace zephyl

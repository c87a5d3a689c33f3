#pragma once

namespace zephyl {

/// The state of this process that the rest of the program relies on. A process that starts a
/// program decides about its descriptors, signals and limits, and they survive exec.

/// Establishes that state:
/// - descriptors 0 to 2 are open, on /dev/null where they were closed, so that no file of the
///   program's own becomes a standard descriptor;
/// - SIGCHLD has its default action, without which no child's end can be waited for;
/// - SIGPIPE is ignored;
/// - the soft limit of open descriptors is as high as the hard one.
///
/// Must be called first in `main`, before a descriptor is opened or a thread is started. The mask
/// of blocked signals is that of `EndSignals::block`.
void establishProcessState();

/// Whether SIGHUP was ignored when the program was started, as `nohup` does. Such a program must
/// not end at a hang-up.
bool hangUpIsIgnored();

/// Gives this process back the limit of descriptors that it was started with, before it becomes
/// another program: some take a high limit badly. Async-signal-safe.
void restoreDescriptorLimit();

}  // namespace zephyl

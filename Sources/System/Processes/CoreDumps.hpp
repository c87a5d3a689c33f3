#pragma once

/// A core file would hold what the process keeps secret, such as keys and tokens, and stay on disk.
namespace zephyl::coreDumps {

/// Sets the soft limit of this process for core files to zero and remembers the limit so far.
/// Called once, by `main`.
void disable();

/// Gives this process the remembered limit back, before it becomes another program. Does nothing
/// unless `disable` was called. Async-signal-safe.
void restore();

}  // namespace zephyl::coreDumps

#pragma once

/// Core dumps are disabled because a core file would put keys and tokens on disk.
namespace zephyl::coreDumps {

/// Sets the soft limit of this process for core files to zero, and remembers the previous limit.
/// Must be called once, by `main`.
void disable();

/// Restores the remembered limit before this process executes another program. Does nothing unless
/// `disable` was called. Async-signal-safe.
void restore();

}  // namespace zephyl::coreDumps

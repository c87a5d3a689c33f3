#pragma once

#include <sys/types.h>

#include "System/Data/Result.hpp"
#include "System/Files/FileDescriptor.hpp"
#include "System/Processes/ChildProcess.hpp"

namespace zephyl {

class Guardian;

/// The parent's descriptors of a forked child. A child is started in two steps, because the fork
/// must happen on one certain thread, and waiting for the program must not block that thread.
struct SpawnedChild {
  pid_t pid = -1;
  FileDescriptor process;  ///< a pidfd: readable once the child has ended
  FileDescriptor input;    ///< the writing end of its input, if requested
  FileDescriptor output;   ///< the reading end of its output, if requested
  FileDescriptor errors;   ///< the reading end of standard error, if it has its own pipe
  FileDescriptor verdict;  ///< receives the reason if exec failed; closed by a successful exec
};

/// Forks a child that will run the program. A tied child is registered with the guardian before its
/// program runs, and receives its death signal when the calling thread ends.
Result<SpawnedChild> spawn(const ProcessOptions& options, Guardian& guardian);

/// Kills and reaps a child whose start failed.
void discard(pid_t pid, Guardian& guardian);

/// Waits until the child runs its program. Callable from any thread. If it cannot run the program,
/// discards the child and returns the reason.
Result<void> awaitProgram(SpawnedChild& child, const ProcessOptions& options, Guardian& guardian);

}  // namespace zephyl

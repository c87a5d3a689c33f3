#pragma once

#include <sys/types.h>

#include "System/Data/Result.hpp"
#include "System/Files/FileDescriptor.hpp"
#include "System/Processes/ChildProcess.hpp"

namespace zephyl {

class Guardian;

/// What a parent holds of a child that it has forked. The way to a running program has two steps,
/// since the fork belongs to one thread and the wait for the program must not hold that one up.
struct SpawnedChild {
  pid_t pid = -1;
  FileDescriptor process;  ///< a pidfd: readable once the child has ended
  FileDescriptor input;    ///< the writing end of its input, where that is asked for
  FileDescriptor output;   ///< the reading end of its output, where that is asked for
  FileDescriptor errors;   ///< the same of standard error, where that has a pipe of its own
  FileDescriptor verdict;  ///< receives why the program could not be started; ends when it was
};

/// Forks a child that goes on to run the program. A tied child is known to the guardian before
/// its program runs, and gets its death signal when the calling thread ends.
Result<SpawnedChild> spawn(const ProcessOptions& options, Guardian& guardian);

/// Kills and reaps a child that came to nothing.
void discard(pid_t pid, Guardian& guardian);

/// Waits, on any thread, until the child runs its program. If it cannot, nothing is left of the
/// child, and the error contains the reason.
Result<void> awaitProgram(SpawnedChild& child, const ProcessOptions& options, Guardian& guardian);

}  // namespace zephyl

#pragma once

#include <sys/types.h>

namespace zephyl {

/// Returns whether the process group of `leader` has a member besides the leader that is not a
/// zombie. Reads the state of all processes, so it takes milliseconds on a busy system; false where
/// /proc cannot be read. The leader must not have been reaped: its number could belong to another
/// group otherwise.
bool hasOtherMembers(pid_t leader);

}  // namespace zephyl

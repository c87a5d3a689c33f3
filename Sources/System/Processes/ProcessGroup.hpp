#pragma once

#include <sys/types.h>

namespace zephyl {

/// Returns whether the process group of `leader` has a member other than the leader that is not a
/// zombie. Reads the state of all processes, so it takes milliseconds on a busy system. Returns
/// false if /proc cannot be read. The leader must not have been reaped, because its id could belong
/// to another group otherwise.
bool hasOtherMembers(pid_t leader);

}  // namespace zephyl

#pragma once

#include <string>

namespace zephyl::sandbox {

/// Returns the value of a variable that holds a secret, empty when it is unset, and removes it from
/// the environment of this process. Overwrites it there, because /proc shows the memory that the
/// environment had at the start.
std::string takeVariable(const char* name);

}  // namespace zephyl::sandbox

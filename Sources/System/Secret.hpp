#pragma once

#include <string>

#include "System/Environment.hpp"

namespace zephyl {

/// Overwrites a secret that is not needed any more, so that it does not stay in memory.
void wipe(std::string& secret);

/// Overwrites all values: some may be secrets.
void wipe(Environment& environment);

}  // namespace zephyl

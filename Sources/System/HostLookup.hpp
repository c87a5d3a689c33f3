#pragma once

#include <functional>
#include <string>

namespace zephyl {

class ProcessLauncher;

/// Finds out whether a host name has an address here. The system's resolver may take long and
/// cannot be interrupted, so a child asks it: it blocks nobody, and ends with the program. `done`
/// is called once, on the reactor's thread; false also when nobody could be asked.
void lookUpHost(ProcessLauncher& launcher, const std::string& host,
                const std::function<void(bool resolves)>& done);

}  // namespace zephyl

#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace zephyl {

class MainLoop;
class ProcessLauncher;

/// The numeric addresses of a host. Empty if it has none or the look-up failed.
using HostAddresses = std::vector<std::string>;

/// Looks up the addresses of a host. Calls `done` once, later, on the main loop. The system's
/// resolver may take long and cannot be interrupted, so a child process runs it: the look-up blocks
/// no thread and ends with the program.
void lookUpHost(ProcessLauncher& launcher, MainLoop& mainLoop, const std::string& host,
                std::function<void(const HostAddresses& addresses)> done);

/// Returns whether `address` is numeric and a loopback address (127.0.0.0/8 or ::1). Pure.
bool isLoopback(std::string_view address);

}  // namespace zephyl

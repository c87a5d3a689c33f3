#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace zephyl {

class MainLoop;
class ProcessLauncher;

/// The numeric addresses of a host; empty when it has none, or when they could not be looked up.
using HostAddresses = std::vector<std::string>;

/// Looks up the addresses of a host. The system's resolver may take long and cannot be
/// interrupted, so a child asks it: the look-up blocks no thread and ends with the program. Calls
/// `done` once, later, on the main loop.
void lookUpHost(ProcessLauncher& launcher, MainLoop& mainLoop, const std::string& host,
                std::function<void(const HostAddresses& addresses)> done);

/// Whether `address` is numeric and leads to this machine: 127.0.0.0/8 or ::1. Pure.
bool isLoopback(std::string_view address);

}  // namespace zephyl

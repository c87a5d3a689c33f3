#pragma once

#include <map>
#include <optional>
#include <string>

#include "System/Data/Secret.hpp"

namespace zephyl {

/// The environment handed to a child: names to values, of which some may be secrets.
using Environment = std::map<std::string, SecretString, std::less<>>;

/// A copy of the process's own environment.
Environment currentEnvironment();

/// The value of a variable of the process's own environment; none when unset.
std::optional<std::string> environmentVariable(const char* name);

/// Passes a token to the environment that lets a child's first window come to the front. Does
/// nothing if `token` is empty.
void setActivationToken(Environment& environment, const std::string& token);

/// Takes what was meant for this process alone out of its environment, so that no child inherits
/// it: `NOTIFY_SOCKET`, `WATCHDOG_*` and activation tokens. Called once, before any thread starts.
void removePrivateEnvironmentVariables();

}  // namespace zephyl

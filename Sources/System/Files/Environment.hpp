#pragma once

#include <map>
#include <optional>
#include <string>

#include "System/Data/Secret.hpp"

namespace zephyl {

/// The environment of a child: names and values. Some values may be secrets.
using Environment = std::map<std::string, SecretString, std::less<>>;

/// Returns a copy of this process's environment.
Environment currentEnvironment();

/// Returns the value of a variable in this process's environment, or nullopt if it is unset.
std::optional<std::string> environmentVariable(const char* name);

/// Adds a token that permits a child's first window to come to the front. Does nothing if `token`
/// is empty.
void setActivationToken(Environment& environment, const std::string& token);

/// Removes variables that are meant for this process alone from its environment, so that no child
/// inherits them: `NOTIFY_SOCKET`, `WATCHDOG_*` and activation tokens. Must be called once, before
/// any thread starts.
void removePrivateEnvironmentVariables();

}  // namespace zephyl

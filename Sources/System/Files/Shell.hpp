#pragma once

#include <string>

namespace zephyl {

/// Returns the shell that runs commands of the user's environment: /bin/zsh if it is installed,
/// else /bin/sh.
std::string loginShell();

}  // namespace zephyl

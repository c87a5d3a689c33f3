#pragma once

#include <string>

namespace zephyl {

/// The shell that commands for the user's programs are run with: /bin/zsh where it is installed,
/// else /bin/sh.
std::string loginShell();

}  // namespace zephyl

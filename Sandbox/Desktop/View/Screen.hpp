#pragma once

namespace zephyl::sandbox::desktop {

/// Returns whether the display server in the environment accepts connections. Otherwise the toolkit
/// would end the process.
bool isScreenReachable();

}  // namespace zephyl::sandbox::desktop

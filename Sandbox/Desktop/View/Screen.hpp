#pragma once

namespace zephyl::sandbox::desktop {

/// Returns whether the display server that the environment names accepts connections. The toolkit
/// would end the process if it does not.
bool isScreenReachable();

}  // namespace zephyl::sandbox::desktop

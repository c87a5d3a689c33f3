#pragma once

namespace zephyl {

/// Configures the toolkit; must be called before the application object is created. Its messages go
/// to standard error, a missing screen ends the process without a core dump, and Wayland is
/// preferred to X11.
void prepareToolkit();

}  // namespace zephyl

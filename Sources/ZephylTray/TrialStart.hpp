#pragma once

namespace zephyl {

class Bundle;

/// How often a version that is on trial (see UpdateFiles) may be started without ever reporting
/// itself up. Whoever watches the first start takes such a version back at once; this is for when
/// nobody is left to watch, as after a power cut.
inline constexpr int maxTrialStarts = 3;

/// Counts this start when the version in `bundle` is on trial. One that was started
/// `maxTrialStarts` times before is taken back, by the updater program of the version before it as
/// long as that works. True: that version stands in place, and this process is to become it.
///
/// Called when this process has become the one tray, before anything that could fail: what a
/// version needs to get here was seen to work before it was installed, when it told its version.
/// Waits for the program; nothing that goes wrong keeps the tray from starting.
bool returnsToPreviousVersion(const Bundle& bundle);

}  // namespace zephyl

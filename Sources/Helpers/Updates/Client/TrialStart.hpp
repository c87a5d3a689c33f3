#pragma once

#include <string>

#include "System/Concurrency/Clock.hpp"

namespace zephyl {

class Bundle;

/// How often an unconfirmed version (see UpdateFiles) may be started without confirming that it
/// works. The updater that watches the first start rolls such a version back at once. This limit
/// is for when no updater watches any more, for example after a power cut.
inline constexpr int maxTrialStarts = 3;

/// How long a start may take, all attempts to roll back included, because of an unconfirmed
/// version.
inline constexpr Duration trialStartTimeout = std::chrono::seconds(5);

/// How long a version has to confirm that it works, measured from the shutdown before the restart.
inline constexpr std::chrono::seconds confirmationTimeout{60};

/// Counts this start if the installed version is unconfirmed. Rolls back a version that was started
/// `maxTrialStarts` times before, with the updater program of the previous version if that works.
/// Returns whether another version is installed now, which this process must execute.
///
/// Called when this process has become the only tray, before anything that could fail. Everything
/// before this point was exercised when the updater ran the new version with "--version". Blocks
/// for `trialStartTimeout` at most. No failure in here keeps the tray from starting: a state
/// directory that must not be trusted is ignored, and a note is removed if it cannot be decoded, or
/// names a version that is not installed while no updater is at work.
bool rollBackIfUnconfirmed(const Bundle& bundle);

/// Records that this process was asked to end, if the installed version is unconfirmed, so that its
/// end does not count as a failure of that version. The trial goes on at the next start. `ran`: how
/// long this process has run; a start shorter than `confirmationTimeout` is not counted.
void recordRequestedEnd(const Bundle& bundle, Duration ran);

/// Returns whether an update is being installed, or was installed and has not confirmed itself.
bool isUpdateUnconfirmed(const Bundle& bundle);

/// Returns the installed version as versions are compared: "CFBundleVersion", otherwise
/// "CFBundleShortVersionString", otherwise an empty string.
std::string installedVersion(const Bundle& bundle);
/// Returns the version of the running program. Returns an empty string if an update has replaced
/// the installation since the process started.
std::string runningVersion(const Bundle& bundle);

}  // namespace zephyl

#pragma once

#include <string>

#include "System/Concurrency/Clock.hpp"

namespace zephyl {

class Bundle;

/// The number of times that an unconfirmed version (see UpdateFiles) may be started. The updater
/// that watches the first start rolls back a failing version at once. This limit applies when no
/// updater is watching, for example after a power cut.
inline constexpr int maxTrialStarts = 3;

/// The maximum delay of a start by an unconfirmed version, including all attempts to roll back.
inline constexpr Duration trialStartTimeout = std::chrono::seconds(5);

/// The time in which a version must confirm itself, measured from the shutdown before the restart.
inline constexpr std::chrono::seconds confirmationTimeout{60};

/// Counts this start if the installed version is unconfirmed. Rolls back a version that was started
/// `maxTrialStarts` times before, preferably with the updater program of the previous version.
/// Returns whether another version is installed now, which this process must execute.
///
/// Must be called when this process has become the only tray, before any step that could fail. All
/// earlier steps were tested when the updater ran the new version with "--version". Blocks for at
/// most `trialStartTimeout`. Failures in here never prevent the start: an untrusted state directory
/// is ignored. A marker file is removed if it cannot be decoded, or if it names a version that is
/// not installed while no updater is running.
bool rollBackIfUnconfirmed(const Bundle& bundle);

/// If the installed version is unconfirmed, records that this process was asked to end, so that its
/// end does not count as a failure of that version. The trial continues at the next start. `ran` is
/// how long this process has run. A start shorter than `confirmationTimeout` is not counted.
void recordRequestedEnd(const Bundle& bundle, Duration ran);

/// Returns whether an update is being installed, or was installed and has not confirmed itself.
bool isUpdateUnconfirmed(const Bundle& bundle);

/// Returns the installed version in its comparable form: "CFBundleVersion", else
/// "CFBundleShortVersionString", else an empty string.
std::string installedVersion(const Bundle& bundle);
/// Returns the version of the running program, or an empty string if an update has replaced the
/// installation since the process started.
std::string runningVersion(const Bundle& bundle);

}  // namespace zephyl

#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "System/Result.hpp"
#include "UpdateMessages/UpdateMessages.hpp"
#include "Updates/Appcast.hpp"

/// Which release of a feed is for whom. Pure.
namespace zephyl {

/// Who asks.
struct Asker {
  std::string installedVersion;
  std::string architecture;   ///< as the kernel names it, such as "x86_64"
  std::string systemVersion;  ///< of the C library, on which it depends what starts here
  std::vector<std::string> channels;
  std::vector<std::string> skip;
  std::int64_t rolloutGroup = 0;
  bool userInitiated = false;
  std::chrono::sys_seconds now;
};

/// A phased roll-out reaches one group after the other, an interval apart.
inline constexpr std::int64_t rolloutGroups = 7;

/// The highest version that is newer than the installed one and meant for whom asks; none when
/// there is none. Fails when what the feed says of that version is not enough to trust it.
Result<std::optional<UpdateOffer>> chooseUpdate(const std::vector<AppcastItem>& items,
                                                const Asker& asker);

/// Whether an offer is complete, and newer than what is installed.
Result<void> checkOffer(const UpdateOffer& offer, const std::string& installedVersion);

}  // namespace zephyl

#include <cstdint>
#include <cstdlib>

#include "Helpers/Updates/Program/Appcast.hpp"
#include "Helpers/Updates/Program/Selection.hpp"
#include "Helpers/Updates/Program/Signature.hpp"
#include "Helpers/Updates/Program/Version.hpp"
#include "System/Data/Text.hpp"

/// Parses any bytes as a feed. No feed may count as signed, and an offered version must be newer
/// than the installed one and have a permitted address.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace zephyl;
  const std::string_view feed(reinterpret_cast<const char*>(data), size);
  static const auto keys = TrustedKeys::parse({"11qYAYKxCrfVS/7TyWQHOg7hcvPapiMlrwIaaPcHURo="});
  if (verifiedFeed(feed, *keys)) std::abort();

  const auto appcast = parseAppcast(feed);
  if (!appcast) return 0;
  static_cast<void>(checkFeedDate(*appcast, std::chrono::sys_seconds()));
  const InstallationProfile installation{.installedVersion = "1.0",
                                         .architecture = "x86_64",
                                         .systemVersion = "2.36",
                                         .channels = {"beta"},
                                         .userInitiated = true};
  const auto offer = chooseUpdate(appcast->items,
                                  appcast->date.value_or(std::chrono::sys_seconds()), installation);
  if (!offer || !*offer) return 0;
  const bool sound = compareVersions((*offer)->version, "1.0") > 0 && (*offer)->length > 0 &&
                     lowerCased((*offer)->url).starts_with("http");
  if (!sound || !isValidUTF8((*offer)->releaseNotes)) std::abort();
  return 0;
}

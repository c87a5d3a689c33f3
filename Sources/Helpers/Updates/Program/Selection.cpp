#include "Helpers/Updates/Program/Selection.hpp"

#include <algorithm>
#include <compare>

#include "Helpers/Updates/Archive/Archive.hpp"
#include "Helpers/Updates/Program/Address.hpp"
#include "Helpers/Updates/Program/Version.hpp"
#include "System/Data/Format.hpp"
#include "System/Data/Text.hpp"

namespace zephyl {

namespace {

constexpr std::size_t sha256Digits = 64;

bool contains(const std::vector<std::string>& list, const std::string& value) {
  return std::ranges::find(list, value) != list.end();
}

const AppcastItem::Enclosure* enclosureFor(const AppcastItem& item,
                                           const InstallationProfile& installation) {
  const auto found = std::ranges::find(item.enclosures, installation.architecture,
                                       &AppcastItem::Enclosure::architecture);
  return found == item.enclosures.end() ? nullptr : &*found;
}

bool hasReached(const AppcastItem& item, const InstallationProfile& installation) {
  if (!item.phasedRolloutInterval || !item.published) return true;
  if (item.critical || installation.userInitiated) return true;
  const auto group = std::clamp<std::int64_t>(installation.rolloutGroup, 0, rolloutGroups - 1);
  // Uses a division, because a product with an arbitrary interval could overflow.
  return (installation.now - *item.published) / *item.phasedRolloutInterval >= group &&
         installation.now >= *item.published;
}

/// Returns whether the user has skipped this version or it has failed. A critical version cannot be
/// skipped. A failed version is offered again only if a newer feed marks it as critical.
bool isExcluded(const AppcastItem& item, std::chrono::sys_seconds feedDate,
                const InstallationProfile& installation) {
  if (contains(installation.skip, item.version) && !item.critical) return true;
  if (!installation.failed || installation.failed->version != item.version) return false;
  return !item.critical || feedDate.time_since_epoch().count() <= installation.failed->feedDate;
}

bool isFor(const AppcastItem& item, std::chrono::sys_seconds feedDate,
           const InstallationProfile& installation) {
  return isVersion(item.version) &&
         std::is_gt(compareVersions(item.version, installation.installedVersion)) &&
         enclosureFor(item, installation) != nullptr &&
         std::is_lteq(compareVersions(item.minimumSystemVersion, installation.systemVersion)) &&
         (item.channel.empty() || contains(installation.channels, item.channel)) &&
         !isExcluded(item, feedDate, installation) && hasReached(item, installation);
}

/// Returns a date such as "2026-11-21".
std::string dayOf(std::chrono::sys_seconds time) {
  const std::chrono::year_month_day day(std::chrono::floor<std::chrono::days>(time));
  return formatText("{:04}-{:02}-{:02}", static_cast<int>(day.year()),
                    static_cast<unsigned>(day.month()), static_cast<unsigned>(day.day()));
}

UpdateOffer offerOf(const AppcastItem& item, const AppcastItem::Enclosure& enclosure) {
  const bool named = isVersion(item.shortVersionString);
  return {
      .version = item.version,
      .displayVersion = named ? item.shortVersionString : item.version,
      .url = enclosure.url,
      .length = enclosure.length,
      .sha256 = enclosure.sha256,
      .signature = enclosure.signature,
      .critical = item.critical,
      .releaseNotes = visibleLines(item.description),
  };
}

}  // namespace

Result<std::optional<UpdateOffer>> chooseUpdate(const std::vector<AppcastItem>& items,
                                                std::chrono::sys_seconds feedDate,
                                                const InstallationProfile& installation) {
  const AppcastItem* best = nullptr;
  for (const auto& item : items) {
    if (!isFor(item, feedDate, installation)) continue;
    if (best == nullptr || std::is_gt(compareVersions(item.version, best->version))) best = &item;
  }
  if (best == nullptr) return std::optional<UpdateOffer>();
  auto offer = offerOf(*best, *enclosureFor(*best, installation));
  if (auto sound = checkOffer(offer, installation.installedVersion); !sound) return sound.error();
  return std::optional(std::move(offer));
}

Result<std::chrono::sys_seconds> checkFeedDate(const Appcast& appcast,
                                               std::optional<std::chrono::sys_seconds> newest) {
  if (!appcast.date) return Error{"The feed does not contain its date."};
  if (!newest || *appcast.date >= *newest) return *appcast.date;
  return Error{"The feed is stale: it was signed on ", dayOf(*appcast.date),
               ", and a newer one, of ", dayOf(*newest), ", was seen before."};
}

Result<void> checkOffer(const UpdateOffer& offer, const std::string& installedVersion) {
  if (!isVersion(offer.version) || std::is_lteq(compareVersions(offer.version, installedVersion))) {
    return Error{"Version ", visible(offer.version), " is not newer than ", installedVersion,
                 ", which is installed."};
  }
  if (offer.length <= 0) return Error{"The feed does not contain the size of the update."};
  if (offer.length > maxArchiveBytes) return Error{"The update is too large."};
  if (offer.signature.empty()) return Error{"The update is not signed."};
  const bool isHash = offer.sha256.size() == sha256Digits &&
                      offer.sha256.find_first_not_of("0123456789abcdef") == std::string::npos;
  if (!isHash) return Error{"The feed does not contain a valid hash of the update."};
  return checkAddress(offer.url);
}

}  // namespace zephyl

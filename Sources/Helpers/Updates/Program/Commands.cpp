#include "Helpers/Updates/Program/Commands.hpp"

#include <cerrno>
#include <thread>

#include <gnu/libc-version.h>
#include <sys/mman.h>
#include <sys/utsname.h>
#include <unistd.h>

#include "Helpers/Updates/Archive/Archive.hpp"
#include "Helpers/Updates/Archive/FreeSpace.hpp"
#include "Helpers/Updates/Program/Appcast.hpp"
#include "Helpers/Updates/Program/ArchiveCache.hpp"
#include "Helpers/Updates/Program/Download.hpp"
#include "Helpers/Updates/Program/Installation.hpp"
#include "Helpers/Updates/Program/Selection.hpp"
#include "Helpers/Updates/Program/Signature.hpp"
#include "Helpers/Updates/Program/Trial.hpp"
#include "System/Files/Files.hpp"
#include "System/Files/Log.hpp"

namespace zephyl {

namespace {

using namespace std::chrono_literals;

constexpr std::int64_t maxFeedBytes = std::int64_t{2} << 20;
constexpr auto feedTimeout = 60s;
constexpr auto archiveTimeout = 2h;
constexpr auto defaultStall = 30s;
constexpr auto progressInterval = 100ms;
constexpr auto retryInterval = 100ms;
constexpr int maxOpenAttempts = 30;  // takes less time than a start waits for a rollback

std::chrono::seconds stallLimit(std::optional<std::int64_t> seconds) {
  return seconds && *seconds > 0 ? std::chrono::seconds(*seconds) : defaultStall;
}

UpdateReport failure(const Error& error) {
  return UpdateFailed{error.message};
}

Result<std::string> fetchFeed(const InstalledBundle& bundle, std::chrono::seconds stall,
                              const CommandClient& client) {
  std::string feed;
  const TransferCallbacks owner{.receive = [&](std::string_view bytes) -> Result<void> {
                                  feed += bytes;
                                  return {};
                                },
                                .isCancelled = client.hasCancelled};
  const TransferLimits limits{.bytes = maxFeedBytes, .total = feedTimeout, .stall = stall};
  if (auto fetched = fetch(bundle.feedURL, limits, owner); !fetched) return fetched.error();
  return feed;
}

InstallationProfile profileFor(const CheckCommand& command, const InstalledBundle& bundle) {
  utsname system{};
  ::uname(&system);
  return {.installedVersion = bundle.version,
          .architecture = static_cast<const char*>(system.machine),
          .systemVersion = ::gnu_get_libc_version(),
          .channels = command.channels,
          .skip = command.skip,
          .failed = command.failed,
          .rolloutGroup = command.rolloutGroup,
          .userInitiated = command.userInitiated,
          .now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now())};
}

struct CheckedFeed {
  std::chrono::sys_seconds date;
  std::optional<UpdateOffer> offer;
};

/// Fetches the feed and chooses an update. Nothing is parsed before the signature is verified.
Result<CheckedFeed> checkFeed(const CheckCommand& command, const InstalledBundle& bundle,
                              const CommandClient& client) {
  if (bundle.feedURL.empty()) return Error{"This installation has no feed address."};
  const auto keys = TrustedKeys::parse(bundle.keys);
  if (!keys) return keys.error();
  const auto feed = fetchFeed(bundle, stallLimit(command.stallSeconds), client);
  if (!feed) return feed.error();
  const auto verified = verifiedFeed(*feed, *keys);
  if (!verified) return verified.error();
  const auto appcast = parseAppcast(*verified);
  if (!appcast) return appcast.error();
  std::optional<std::chrono::sys_seconds> newest;
  if (command.newestFeedDate) newest.emplace(std::chrono::seconds(*command.newestFeedDate));
  const auto date = checkFeedDate(*appcast, newest);
  if (!date) return date.error();
  auto offer = chooseUpdate(appcast->items, *date, profileFor(command, bundle));
  if (!offer) return offer.error();
  return CheckedFeed{*date, std::move(*offer)};
}

/// Maps the bytes of a file while it exists.
class MappedFile {
 public:
  MappedFile(const FileDescriptor& file, std::size_t size) : size_(size) {
    address_ = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file.get(), 0);
  }
  ~MappedFile() {
    if (isValid()) ::munmap(address_, size_);
  }
  MappedFile(const MappedFile&) = delete;
  MappedFile& operator=(const MappedFile&) = delete;

  [[nodiscard]] bool isValid() const { return address_ != MAP_FAILED; }
  [[nodiscard]] std::string_view bytes() const {
    return {static_cast<const char*>(address_), size_};
  }

 private:
  void* address_;
  const std::size_t size_;
};

/// Writes the received bytes to a file and reports the progress.
class ArchiveDownload {
 public:
  ArchiveDownload(const UpdateOffer& offer, FileDescriptor& file, const CommandClient& client)
      : offer_(offer), file_(file), client_(client) {}

  Result<void> run(std::chrono::seconds stall) {
    const TransferCallbacks owner{
        .receive = [this](std::string_view bytes) { return receive(bytes); },
        .isCancelled = [this] { return isCancelled(); }};
    const TransferLimits limits{.bytes = offer_.length, .total = archiveTimeout, .stall = stall};
    if (auto fetched = fetch(offer_.url, limits, owner); !fetched) return fetched;
    if (received_ != offer_.length) return Error{"The update is shorter than it should be."};
    report();
    return {};
  }

 private:
  Result<void> receive(std::string_view bytes) {
    received_ += static_cast<std::int64_t>(bytes.size());
    while (!bytes.empty()) {
      const auto count = ::write(file_.get(), bytes.data(), bytes.size());
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) return systemError("The update cannot be stored", errno);
      bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    reportIfDue();
    return {};
  }

  /// Called periodically, even if nothing arrives, so it also reports the last bytes.
  bool isCancelled() {
    if (received_ > reported_) reportIfDue();
    return client_.hasCancelled();
  }

  void reportIfDue() {
    const auto now = std::chrono::steady_clock::now();
    if (now - reportedAt_ >= progressInterval) {
      reportedAt_ = now;
      report();
    }
  }

  void report() {
    reported_ = received_;
    client_.report({.received = received_, .total = offer_.length});
  }

  const UpdateOffer& offer_;
  FileDescriptor& file_;
  const CommandClient& client_;
  std::int64_t received_ = 0;
  std::int64_t reported_ = 0;
  std::chrono::steady_clock::time_point reportedAt_;
};

Result<void> checkBytes(std::string_view archive, const UpdateOffer& offer,
                        const TrustedKeys& keys) {
  if (!keys.verifyAny(archive, offer.signature)) {
    return Error{"The signature of the update is invalid."};
  }
  if (sha256Of(archive) != offer.sha256)
    return Error{"The update does not match the hash in the feed."};
  return {};
}

/// Verifies and stages the bytes of `file` through the same descriptor.
Result<void> checkAndStage(const FileDescriptor& file, const UpdateOffer& offer,
                           const TrustedKeys& keys, Installation& installation) {
  const MappedFile archive(file, static_cast<std::size_t>(offer.length));
  if (!archive.isValid()) return systemError("The update cannot be read", errno);
  if (auto good = checkBytes(archive.bytes(), offer, keys); !good) return good;
  return installation.stage(archive.bytes(), offer.version);
}

/// Stages the archive of an earlier download. Returns whether there was a valid one.
bool stageKept(const UpdateOffer& offer, const TrustedKeys& keys, Installation& installation,
               const CommandClient& client) {
  const auto file = installation.makeUnnamedFile();
  if (!file) return false;
  const ArchiveCache kept(installation.files());
  if (!kept.copyTo(*file, offer.sha256, offer.length)) return false;
  client.report({.received = offer.length, .total = offer.length});
  return checkAndStage(*file, offer, keys, installation).has_value();
}

Result<void> downloadAndStage(const DownloadCommand& command, const CommandClient& client) {
  const auto& offer = command.offer;
  const auto bundle = InstalledBundle::read(command.prefix);
  if (!bundle) return bundle.error();
  const auto keys = TrustedKeys::parse(bundle->keys);
  if (!keys) return keys.error();
  if (auto sound = checkOffer(offer, bundle->version); !sound) return sound;
  if (const auto obstacle = Installation::obstacle(command.prefix)) return Error{*obstacle};
  auto installation = Installation::open(command.prefix);
  if (!installation) return installation.error();
  if (stageKept(offer, *keys, *installation, client)) return {};

  const ArchiveCache kept(installation->files());
  kept.removeAll();
  auto file = installation->makeUnnamedFile();
  if (!file) return file.error();
  if (auto fits = checkFreeSpace(*file, offer.length); !fits) return fits;
  auto downloaded = ArchiveDownload(offer, *file, client).run(stallLimit(command.stallSeconds));
  if (!downloaded) return downloaded;
  if (auto staged = checkAndStage(*file, offer, *keys, *installation); !staged) return staged;
  kept.keep(*file, offer.sha256);
  return {};
}

/// Opens the installation. Waits for the end of an updater that the new version has started.
Result<Installation> openWhenFree(const std::string& prefix) {
  auto installation = Installation::open(prefix);
  for (int attempt = 0; !installation && attempt < maxOpenAttempts; ++attempt) {
    std::this_thread::sleep_for(retryInterval);
    installation = Installation::open(prefix);
  }
  return installation;
}

Result<void> rollBack(const std::string& prefix) {
  auto installation = openWhenFree(prefix);
  if (!installation) return installation.error();
  return installation->rollBack();
}

/// Removes kept archives and staged versions that are not needed any more.
void removeUnwanted(const std::string& prefix, const std::string& offered) {
  const ArchiveCache kept(UpdateFiles::of(prefix));
  if (!kept.hasUnwanted(offered)) return;
  const auto installation = Installation::open(prefix);
  if (installation && !fileExists(installation->files().trial)) kept.removeUnwanted(offered);
}

}  // namespace

UpdateReport perform(const CheckCommand& command, const CommandClient& client) {
  const auto bundle = InstalledBundle::read(command.prefix);
  if (!bundle) return failure(bundle.error());
  auto feed = checkFeed(command, *bundle, client);
  if (!feed) return failure(feed.error());
  const auto date = feed->date.time_since_epoch().count();
  removeUnwanted(command.prefix, feed->offer ? feed->offer->sha256 : "");
  if (!feed->offer) {
    return UpToDate{.version = bundle->displayVersion, .feedDate = date};
  }
  return UpdateFound{.offer = std::move(*feed->offer),
                     .feedDate = date,
                     .obstacle = Installation::obstacle(command.prefix)};
}

UpdateReport perform(const DownloadCommand& command, const CommandClient& client) {
  if (auto staged = downloadAndStage(command, client); !staged) {
    return failure(staged.error());
  }
  return UpdateStaged{command.offer.version};
}

UpdateReport perform(const InstallCommand& command) {
  if (const auto obstacle = Installation::obstacle(command.prefix)) return UpdateFailed{*obstacle};
  auto installation = Installation::open(command.prefix);
  if (!installation) return failure(installation.error());
  if (auto swapped = installation->swap(command.version); !swapped) {
    return failure(swapped.error());
  }
  ArchiveCache(installation->files()).removeAll();
  return UpdateInstalled{command.version};
}

Result<void> perform(const WatchCommand& command) {
  const WatchedProcess process(static_cast<pid_t>(command.process));
  const auto limit = std::chrono::seconds(command.limitSeconds);
  if (outcomeOfTrial(command.prefix, process, limit) != TrialOutcome::failed) return {};
  log("the new version did not start; rolling back to the previous one");
  process.end();
  if (auto rolledBack = rollBack(command.prefix); !rolledBack) return rolledBack;
  return becomeProgram(joinPath(command.prefix, "bin/zephyl-tray"), command.arguments);
}

Result<void> perform(const RollBackCommand& command) {
  return rollBack(command.prefix);
}

}  // namespace zephyl

#include "Agent/FolderWatch.hpp"

#include <array>
#include <cstring>
#include <utility>

#include <sys/inotify.h>
#include <unistd.h>

namespace zephyl::sandbox {
namespace {

constexpr unsigned watchedEvents = IN_CREATE | IN_CLOSE_WRITE | IN_DELETE | IN_MOVED_FROM |
                                   IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR |
                                   IN_DONT_FOLLOW | IN_EXCL_UNLINK;

}  // namespace

FolderWatch::FolderWatch() : descriptor_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {}

bool FolderWatch::watch(const std::string& directory, const std::string& absolutePath) {
  const int watch = ::inotify_add_watch(descriptor_.get(), absolutePath.c_str(), watchedEvents);
  if (watch < 0) return false;
  directories_[watch] = directory;
  watches_[directory] = watch;
  return true;
}

void FolderWatch::forget(const std::string& directory) {
  const auto drop = [this](auto entry) {
    ::inotify_rm_watch(descriptor_.get(), entry->second);
    directories_.erase(entry->second);
    return watches_.erase(entry);
  };
  auto [entry, end] = contentOf(watches_, directory);
  while (entry != end) entry = drop(entry);
  if (const auto self = watches_.find(directory); self != watches_.end()) drop(self);
}

std::vector<FolderChange> FolderWatch::read() {
  std::vector<FolderChange> changes;
  alignas(inotify_event) std::array<char, 32'768> buffer{};
  for (;;) {
    const auto length = ::read(descriptor_.get(), buffer.data(), buffer.size());
    if (length <= 0) return changes;
    const std::string_view bytes(buffer.data(), static_cast<std::size_t>(length));
    for (std::size_t at = 0; at < bytes.size();) {
      inotify_event event{};
      std::memcpy(&event, bytes.data() + at, sizeof event);
      const char* name = bytes.data() + at + sizeof event;
      translate(event.wd, event.mask, event.len > 0 ? name : "", changes);
      at += sizeof event + event.len;
    }
  }
}

void FolderWatch::translate(int watch, unsigned mask, std::string_view name,
                            std::vector<FolderChange>& changes) {
  using Kind = FolderChange::Kind;
  if (mask & IN_Q_OVERFLOW) changes.push_back({Kind::eventsLost, {}});
  const auto found = directories_.find(watch);
  if (found == directories_.end()) return;
  if (mask & (IN_DELETE_SELF | IN_MOVE_SELF)) {
    if (found->second.empty()) changes.push_back({Kind::rootGone, {}});
    return;
  }
  if (name.empty()) return;
  const bool gone = mask & (IN_DELETE | IN_MOVED_FROM);
  auto path = within(found->second, name);
  if (mask & IN_ISDIR) {
    changes.push_back({gone ? Kind::directoryGone : Kind::directoryAppeared, std::move(path)});
  } else {
    changes.push_back({gone ? Kind::fileGone : Kind::fileTouched, std::move(path)});
  }
}

std::string within(const std::string& directory, std::string_view name) {
  std::string path = directory;
  if (!path.empty()) path += '/';
  path += name;
  return path;
}

}  // namespace zephyl::sandbox

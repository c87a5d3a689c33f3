#include "Agent/Folders.hpp"

#include <algorithm>
#include <filesystem>

#include "System/Data/Text.hpp"

namespace zephyl::sandbox {
namespace fs = std::filesystem;
namespace {

constexpr std::int64_t maxFolders = 64;

bool reachesEveryServer(const SharedRoot& shared) {
  return !shared.servers || shared.servers->empty();
}

/// Adds missing servers. Returns false if none was missing.
bool unite(std::vector<std::string>& servers, const std::vector<std::string>& further) {
  const auto before = servers.size();
  for (const auto& server : further) {
    if (std::ranges::find(servers, server) == servers.end()) servers.push_back(server);
  }
  return servers.size() != before;
}

template <typename Values, typename Function>
auto mapped(const Values& values, Function function) {
  std::vector<decltype(function(values.front()))> results;
  results.reserve(values.size());
  for (const auto& value : values) results.push_back(function(value));
  return results;
}

Error notShared(const std::string& path) {
  return {visible(path), " is not shared"};
}

}  // namespace

Result<std::optional<std::string>> Folders::canonical(const std::string& path) {
  if (path.find('\0') != std::string::npos || !fs::path(path).is_absolute()) {
    return Error{"\"", visible(path), "\" is not an absolute path"};
  }
  std::error_code error;
  auto found = fs::canonical(path, error).string();
  if (error) return std::optional<std::string>();
  if (!fs::is_directory(found, error)) return Error{path, " is not a folder"};
  if (found == "/") return Error{"the whole file system cannot be shared"};
  if (!isValidUTF8(found)) return Error{"the folder's path is not valid UTF-8"};
  return std::optional(std::move(found));
}

Folders::Folders(const std::vector<SavedFolder>& saved) {
  for (const auto& folder : saved) {
    folders_.push_back(
        {.shared = {.root = folder.root, .name = folder.name, .servers = folder.servers},
         .index = {.root = folder.root},
         .embedded = static_cast<double>(folder.filesEmbedded)});
  }
}

Result<Folders::Added> Folders::add(const std::string& root, const std::optional<std::string>& name,
                                    const std::optional<std::vector<std::string>>& servers) {
  if (const auto known = locateShared(root)) return widen(**known, servers);
  if (std::ssize(folders_) >= maxFolders) {
    return Error{"no more than ", counted(maxFolders, "folder"), " can be shared"};
  }
  SharedRoot shared{.root = root,
                    .name = name && !name->empty() ? *name : fs::path(root).filename().string(),
                    .servers = servers};
  folders_.push_back({.shared = shared, .index = {.root = root}});
  return Added{.shared = std::move(shared), .isNew = true};
}

Result<Folders::Added> Folders::widen(Folder& folder,
                                      const std::optional<std::vector<std::string>>& servers) {
  const Error already{folder.shared.root, " is shared already"};
  if (reachesEveryServer(folder.shared)) return already;
  if (!servers || servers->empty()) {
    folder.shared.servers.reset();
  } else if (!unite(*folder.shared.servers, *servers)) {
    return already;
  }
  return Added{.shared = folder.shared};
}

Result<SharedRoot> Folders::remove(const std::string& path) {
  const auto folder = locateShared(path);
  if (!folder) return folder.error();
  auto removed = std::move((*folder)->shared);
  folders_.erase(folders_.begin() + (*folder - folders_.data()));
  return removed;
}

Result<SharedRoot> Folders::setServers(const std::string& path,
                                       const std::vector<std::string>& servers) {
  const auto folder = locateShared(path);
  if (!folder) return folder.error();
  auto& shared = (*folder)->shared;
  unite(shared.servers.emplace(), servers);
  return shared;
}

Result<std::string> Folders::find(const std::string& path) const {
  if (const auto* folder = locate(path)) return folder->shared.root;
  return notShared(path);
}

bool Folders::apply(const IndexReport& report) {
  const auto found = locateShared(report.root);
  if (!found) return false;
  auto& folder = **found;
  folder.index = report;
  if (report.ready && !report.missing) {
    folder.embedded = std::min(folder.embedded, static_cast<double>(report.files));
    folder.embedded = std::max(folder.embedded - static_cast<double>(report.rewritten), 0.0);
  }
  return true;
}

std::vector<SharedRoot> Folders::embed(double files) {
  std::vector<SharedRoot> finished;
  for (auto& folder : folders_) {
    if (!folder.isOutstanding()) continue;
    const auto before = folder.embedded;
    folder.embedded = std::min(before + files, static_cast<double>(folder.index.files));
    files -= folder.embedded - before;
    if (!folder.isOutstanding()) finished.push_back(folder.shared);
  }
  return finished;
}

bool Folders::isIndexing() const {
  return !std::ranges::all_of(folders_, [](const Folder& folder) { return folder.index.ready; });
}

bool Folders::isEmbeddingOutstanding() const {
  return std::ranges::any_of(folders_, &Folder::isOutstanding);
}

std::vector<IndexProgress> Folders::progress(bool modelReady, bool modelFailed) const {
  return mapped(folders_,
                [=](const Folder& folder) { return folder.progress(modelReady, modelFailed); });
}

std::vector<SharedRoot> Folders::shared() const {
  return mapped(folders_, [](const Folder& folder) { return folder.shared; });
}

std::vector<SavedFolder> Folders::saved() const {
  return mapped(folders_, [](const Folder& folder) {
    return SavedFolder{.root = folder.shared.root,
                       .name = folder.shared.name,
                       .servers = folder.shared.servers,
                       .filesEmbedded = static_cast<std::int64_t>(folder.embedded)};
  });
}

Folders::Sums Folders::sums() const {
  Sums sums;
  for (const auto& folder : folders_) {
    sums.files += folder.index.files;
    sums.bytes += folder.index.bytes;
  }
  return sums;
}

bool Folders::Folder::isOutstanding() const {
  return index.ready && embedded < static_cast<double>(index.files);
}

IndexProgress Folders::Folder::progress(bool modelReady, bool modelFailed) const {
  // The approximate size of an index of the words.
  constexpr std::int64_t indexBytesPerFile = 128;
  const auto files = std::min(static_cast<std::int64_t>(embedded), index.files);
  return {.root = shared.root,
          .ready = index.ready,
          .embedding = modelReady && isOutstanding(),
          .filesEmbedded = files,
          .chunksEmbedded = index.files > 0 ? index.chunks * files / index.files : 0,
          .lexicalFiles = index.files,
          .ragEnabled = !modelFailed,
          .indexBytes = index.bytes / 2 + index.files * indexBytesPerFile};
}

const Folders::Folder* Folders::locate(const std::string& path) const {
  const auto at = [this](const std::string& root) {
    const auto found = std::ranges::find(
        folders_, root, [](const Folder& folder) -> auto& { return folder.shared.root; });
    return found == folders_.end() ? nullptr : &*found;
  };
  if (const auto* folder = at(path)) return folder;
  const auto root = canonical(path);
  return root && *root ? at(**root) : nullptr;
}

Result<Folders::Folder*> Folders::locateShared(const std::string& path) {
  const auto* folder = locate(path);
  if (!folder) return notShared(path);
  return &folders_[static_cast<std::size_t>(folder - folders_.data())];
}

}  // namespace zephyl::sandbox

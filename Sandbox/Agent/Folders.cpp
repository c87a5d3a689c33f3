#include "Agent/Folders.hpp"

#include <algorithm>
#include <filesystem>
#include <iterator>

#include <fmt/format.h>

#include "Agent/Text.hpp"
#include "Common/Text.hpp"

namespace zephyl::sandbox {
namespace fs = std::filesystem;
namespace {

constexpr std::size_t mostFolders = 64;

bool reachesEveryServer(const SharedRoot& shared) {
  return !shared.servers || shared.servers->empty();
}

/// Adds what is missing; false when nothing was.
bool unite(std::vector<std::string>& servers, const std::vector<std::string>& further) {
  const auto before = servers.size();
  for (const auto& server : further) {
    if (std::find(servers.begin(), servers.end(), server) == servers.end())
      servers.push_back(server);
  }
  return servers.size() != before;
}

template <typename Values, typename Function>
auto mapped(const Values& values, Function function) {
  std::vector<decltype(function(values.front()))> results;
  results.reserve(values.size());
  std::transform(values.begin(), values.end(), std::back_inserter(results), function);
  return results;
}

}  // namespace

Outcome<std::string> Folders::canonical(const std::string& path) {
  if (path.find('\0') != std::string::npos || !fs::path(path).is_absolute()) {
    return badRequest(fmt::format("\"{}\" is not an absolute path", printable(path)));
  }
  std::error_code error;
  auto found = fs::canonical(path, error).string();
  if (error) return notFound(fmt::format("there is no folder {}", path));
  if (!fs::is_directory(found, error)) return badRequest(fmt::format("{} is not a folder", path));
  if (found == "/") return badRequest("the whole file system cannot be shared");
  if (!isUtf8(found)) return badRequest("the folder's path is not valid UTF-8");
  return found;
}

Folders::Folders(const std::vector<State::Folder>& remembered) {
  for (const auto& [shared, filesEmbedded] : remembered) {
    folders_.push_back({.shared = shared,
                        .index = {.root = shared.root},
                        .embedded = static_cast<double>(filesEmbedded)});
  }
}

Outcome<Folders::Added> Folders::add(const std::string& path,
                                     const std::optional<std::string>& name,
                                     const std::optional<std::vector<std::string>>& servers) {
  auto root = canonical(path);
  if (!root) return root.error();
  if (const auto known = locate(*root)) return widen(folders_[*known], servers);
  if (folders_.size() >= mostFolders) {
    return conflict(fmt::format("no more than {} can be shared", counted(mostFolders, "folder")));
  }
  SharedRoot shared{.root = *root,
                    .name = name && !name->empty() ? *name : fs::path(*root).filename().string(),
                    .servers = servers};
  folders_.push_back({.shared = shared, .index = {.root = *root}});
  return Added{.shared = std::move(shared), .isNew = true};
}

Outcome<Folders::Added> Folders::widen(
    Folder& folder, const std::optional<std::vector<std::string>>& servers) const {
  const auto already = conflict(fmt::format("{} is shared already", folder.shared.root));
  if (reachesEveryServer(folder.shared)) return already;
  if (!servers || servers->empty()) {
    folder.shared.servers.reset();
  } else if (!unite(*folder.shared.servers, *servers)) {
    return already;
  }
  return Added{.shared = folder.shared};
}

Outcome<SharedRoot> Folders::remove(const std::string& path) {
  const auto index = locate(path);
  if (!index) return index.error();
  auto removed = folders_[*index].shared;
  folders_.erase(folders_.begin() + static_cast<std::ptrdiff_t>(*index));
  return removed;
}

Outcome<SharedRoot> Folders::setServers(const std::string& path,
                                        const std::vector<std::string>& servers) {
  const auto index = locate(path);
  if (!index) return index.error();
  auto& shared = folders_[*index].shared;
  shared.servers.emplace();
  unite(*shared.servers, servers);
  return shared;
}

Outcome<std::string> Folders::find(const std::string& path) const {
  const auto index = locate(path);
  if (!index) return index.error();
  return folders_[*index].shared.root;
}

bool Folders::apply(const IndexReport& report) {
  const auto index = locate(report.root);
  if (!index) return false;
  auto& folder = folders_[*index];
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
    if (!folder.outstanding()) continue;
    const auto before = folder.embedded;
    folder.embedded = std::min(before + files, static_cast<double>(folder.index.files));
    files -= folder.embedded - before;
    if (!folder.outstanding()) finished.push_back(folder.shared);
  }
  return finished;
}

bool Folders::indexing() const {
  return std::any_of(folders_.begin(), folders_.end(),
                     [](const Folder& folder) { return !folder.index.ready; });
}

bool Folders::embeddingOutstanding() const {
  return std::any_of(folders_.begin(), folders_.end(),
                     [](const Folder& folder) { return folder.outstanding(); });
}

std::vector<IndexProgress> Folders::progress(bool modelReady, bool modelFailed) const {
  return mapped(folders_,
                [=](const Folder& folder) { return folder.progress(modelReady, modelFailed); });
}

std::vector<SharedRoot> Folders::shared() const {
  return mapped(folders_, [](const Folder& folder) { return folder.shared; });
}

std::vector<State::Folder> Folders::remember() const {
  return mapped(folders_, [](const Folder& folder) {
    return State::Folder{.shared = folder.shared,
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

bool Folders::Folder::outstanding() const {
  return index.ready && embedded < static_cast<double>(index.files);
}

IndexProgress Folders::Folder::progress(bool modelReady, bool modelFailed) const {
  const auto files = std::min(static_cast<std::int64_t>(embedded), index.files);
  return {.root = shared.root,
          .ready = index.ready,
          .embedding = modelReady && outstanding(),
          .filesEmbedded = files,
          .chunksEmbedded = index.files > 0 ? index.chunks * files / index.files : 0,
          .lexicalFiles = index.files,
          .ragEnabled = !modelFailed,
          .indexBytes = index.indexBytes};
}

Outcome<std::size_t> Folders::locate(const std::string& path) const {
  const auto at = [this](const std::string& root) {
    return static_cast<std::size_t>(
        std::find_if(folders_.begin(), folders_.end(),
                     [&](const Folder& folder) { return folder.shared.root == root; }) -
        folders_.begin());
  };
  auto index = at(path);
  if (index == folders_.size()) {
    if (const auto root = canonical(path)) index = at(*root);
  }
  if (index == folders_.size()) return notFound(fmt::format("{} is not shared", printable(path)));
  return index;
}

}  // namespace zephyl::sandbox

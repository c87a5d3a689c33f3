#include "Desktop/Command/Choice.hpp"

#include <algorithm>
#include <filesystem>
#include <iterator>

#include "System/Data/Format.hpp"
#include "System/Data/Text.hpp"

namespace zephyl::sandbox::desktop {
namespace fs = std::filesystem;
namespace {

std::string described(const std::vector<ServerEntry>& servers) {
  std::string text;
  for (const auto& server : servers) {
    text += formatText("{}\"{}\" ({})", text.empty() ? "" : ", ", server.name, server.id);
  }
  return visible(text);
}

template <typename Condition>
std::vector<ServerEntry> filtered(const std::vector<ServerEntry>& servers, Condition condition) {
  std::vector<ServerEntry> result;
  std::ranges::copy_if(servers, std::back_inserter(result), condition);
  return result;
}

}  // namespace

Result<std::string> chooseServer(const std::vector<ServerEntry>& servers,
                                 const std::string& meant) {
  auto found = filtered(servers, [&](const ServerEntry& server) { return server.id == meant; });
  if (found.empty()) {
    found = filtered(servers, [&](const ServerEntry& server) {
      return lowerCased(server.name) == lowerCased(meant);
    });
  }
  if (found.empty() && !meant.empty()) {
    found =
        filtered(servers, [&](const ServerEntry& server) { return server.id.starts_with(meant); });
  }
  if (found.size() == 1) return found.front().id;
  if (!found.empty()) {
    return Error{"\"", visible(meant), "\" is ambiguous: ", described(found)};
  }
  if (servers.empty()) return Error{"There are no servers yet."};
  return Error{"No server is called \"", visible(meant), "\". There is ", described(servers), "."};
}

std::string chooseFolder(const std::vector<FolderEntry>& folders, const std::string& meant) {
  std::error_code error;
  auto path = fs::absolute(meant, error).lexically_normal().string();
  if (path.size() > 1 && path.ends_with('/')) path.pop_back();
  for (const auto field : {&FolderEntry::root, &FolderEntry::name}) {
    for (const auto& folder : folders) {
      if (folder.*field == meant || folder.*field == path) return folder.root;
    }
  }
  return path;
}

}  // namespace zephyl::sandbox::desktop

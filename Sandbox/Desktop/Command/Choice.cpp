#include "Desktop/Command/Choice.hpp"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <string_view>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "Common/Text.hpp"
#include "Desktop/Command/Fields.hpp"

namespace zephyl::sandbox::desktop {
namespace fs = std::filesystem;
namespace json = boost::json;
namespace {

struct Server {
  std::string id;
  std::string name;
};

using Servers = std::vector<Server>;

Servers read(const json::array& list) {
  Servers servers;
  for (const auto& value : list) {
    if (!value.is_object()) continue;
    const auto& server = value.get_object();
    servers.push_back({textField(server, "id"), textField(server, "name")});
  }
  return servers;
}

bool isSame(std::string_view a, std::string_view b) {
  const auto lower = [](char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
  };
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [&](char left, char right) { return lower(left) == lower(right); });
}

Servers filtered(const Servers& servers, const std::function<bool(const Server&)>& condition) {
  Servers result;
  std::copy_if(servers.begin(), servers.end(), std::back_inserter(result), condition);
  return result;
}

std::string described(const Servers& servers) {
  std::vector<std::string> texts;
  texts.reserve(servers.size());
  for (const auto& [id, name] : servers) {
    texts.push_back(printable(fmt::format("\"{}\" ({})", name, id)));
  }
  return fmt::format("{}", fmt::join(texts, ", "));
}

}  // namespace

Result<std::string> chooseServer(const json::array& list, const std::string& meant) {
  const auto servers = read(list);
  auto found = filtered(servers, [&](const Server& server) { return server.id == meant; });
  if (found.empty()) {
    found = filtered(servers, [&](const Server& server) { return isSame(server.name, meant); });
  }
  if (found.empty() && !meant.empty()) {
    found = filtered(servers, [&](const Server& server) { return server.id.starts_with(meant); });
  }
  if (found.size() == 1) return found.front().id;
  if (!found.empty()) {
    return Failure{fmt::format("\"{}\" may be any of {}", printable(meant), described(found))};
  }
  if (servers.empty()) return Failure{"There are no servers yet."};
  return Failure{fmt::format("No server is called \"{}\". There is {}.", printable(meant),
                             described(servers))};
}

std::string chooseFolder(const json::array& roots, const std::string& meant) {
  std::error_code error;
  auto path = fs::absolute(meant, error).lexically_normal().string();
  if (path.size() > 1 && path.ends_with('/')) path.pop_back();
  for (const auto* key : {"root", "name"}) {
    for (const auto& value : roots) {
      if (!value.is_object()) continue;
      const auto field = textField(value.get_object(), key);
      if (field == meant || field == path) return textField(value.get_object(), "root");
    }
  }
  return path;
}

}  // namespace zephyl::sandbox::desktop

#pragma once

#include <cstddef>
#include <optional>
#include <string_view>
#include <unordered_map>

#include "ZephylTray/Registry/Servers.hpp"

namespace zephyl {

/// Finds servers by the names that the agent's answers have for them: a server's id, or its
/// `agentId`, which the agent has received. If both match, the id takes precedence.
///
/// Refers to the servers from which it was constructed, which must outlive it.
class ServerNames {
 public:
  explicit ServerNames(const ServerList& servers);
  explicit ServerNames(ServerList&& servers) = delete;

  /// Returns the index of the first server with this name, or nullopt if there is none.
  [[nodiscard]] std::optional<std::size_t> find(std::string_view name) const;

 private:
  std::unordered_map<std::string_view, std::size_t> indices_;
};

}  // namespace zephyl

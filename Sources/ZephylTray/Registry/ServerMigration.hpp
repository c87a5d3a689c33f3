#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "System/Data/JSON.hpp"
#include "ZephylTray/Registry/ServerEntry.hpp"

/// Migration of older layouts of the registry. Pure functions, used by `Servers`.
namespace zephyl::migration {

/// Returns the web address that corresponds to an older entry's host and web target: the web target
/// unless it is blank, else "http://<host>", with the old default port unless the host includes a
/// port. Returns nullopt if the host is blank, too.
std::optional<std::string> legacyAddress(std::string_view host,
                                         const std::optional<std::string>& webTarget);

/// Returns the entry of the server of an installation that predates the registry, or nullopt if the
/// user had not joined a server. An absent fingerprint counts as empty.
std::optional<ServerEntry> singleServer(std::string id, std::string_view host,
                                        const std::optional<std::string>& fingerprint);

/// Sets the address of entries without one from the old keys "serverHost" and "webTarget" in
/// `file`, the content of the registry file. Returns whether an entry was changed.
bool foldAddressing(const json::Value& file, std::vector<ServerEntry>& entries);

/// If any entry lacks an ordinal, numbers all such entries, starting after the largest ordinal, and
/// clears every generated label. Returns whether any entry lacked one.
bool reclaimNaming(std::vector<ServerEntry>& entries);

}  // namespace zephyl::migration

#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "System/Data/JSON.hpp"
#include "ZephylTray/Registry/ServerEntry.hpp"

/// How older layouts of the registry become today's: pure functions, for `Servers`.
namespace zephyl::migration {

/// The web address of a server that had a host and perhaps a web target: the web target unless
/// blank, else "http://<host>", with the old default port when the host names none; none when the
/// host is blank too.
std::optional<std::string> legacyAddress(std::string_view host,
                                         const std::optional<std::string>& webTarget);

/// The entry of the only server of the time before there was a registry; none when the user had
/// joined none. An absent fingerprint counts as empty.
std::optional<ServerEntry> singleServer(std::string id, std::string_view host,
                                        const std::optional<std::string>& fingerprint);

/// Gives entries without an address the one that the old keys "serverHost" and "webTarget" of
/// `file`, the registry file as it stands, make. Whether an entry was changed.
bool foldAddressing(const json::Value& file, std::vector<ServerEntry>& entries);

/// When an entry has no ordinal: numbers all those on from the largest one, and empties every
/// label that was only generated. Whether that was so.
bool reclaimNaming(std::vector<ServerEntry>& entries);

}  // namespace zephyl::migration

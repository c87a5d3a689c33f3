#include <cstdlib>

#include "System/Data/JSON.hpp"
#include "System/Data/Text.hpp"
#include "ZephylTray/Registry/ServerEntry.hpp"
#include "ZephylTray/Registry/ServerMigration.hpp"

/// Parses any bytes as servers.json. A parsed registry must be equal after it was written and
/// parsed again.

namespace {

using Entries = std::vector<zephyl::ServerEntry>;

void require(bool condition) {
  if (!condition) std::abort();
}

void useDerivedProperties(const zephyl::ServerEntry& entry) {
  require(!entry.displayName().empty());
  require(entry.serverURL().has_value() == entry.addressURL().has_value());
  require(entry.displayAccent().size() <=
          entry.accent.value_or("").size() + entry.serverAccent.value_or("").size());
  require(entry.ports.tunnelFallbackAddr().starts_with("127.0.0.1:"));
  static_cast<void>(entry.nameResolved());
}

void requireReadableWhenWritten(const Entries& entries) {
  const std::string text = zephyl::json::prettySorted(zephyl::json::encode(entries));
  require(zephyl::isValidUTF8(text));
  const auto again = zephyl::json::decodeText<Entries>(text);
  require(again && *again == entries);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto file = zephyl::json::parse({reinterpret_cast<const char*>(data), size});
  if (!file) return 0;
  auto entries = zephyl::json::decode<Entries>(*file);
  if (!entries) {
    require(!entries.error().message.empty());
    return 0;
  }
  requireReadableWhenWritten(*entries);
  zephyl::migration::foldAddressing(*file, *entries);
  zephyl::migration::reclaimNaming(*entries);
  require(!zephyl::migration::reclaimNaming(*entries));
  for (const auto& entry : *entries) useDerivedProperties(entry);
  requireReadableWhenWritten(*entries);
  return 0;
}

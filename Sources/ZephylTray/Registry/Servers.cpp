#include "ZephylTray/Registry/Servers.hpp"

#include <algorithm>
#include <atomic>
#include <cassert>
#include <cstdlib>
#include <mutex>
#include <set>

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include "System/Concurrency/SerialQueue.hpp"
#include "System/Data/JSON.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/Directories.hpp"
#include "System/Files/Files.hpp"
#include "System/Files/Log.hpp"
#include "System/Files/PrivateDirectory.hpp"
#include "System/Files/UserDefaults.hpp"
#include "ZephylTray/Config/Config.hpp"
#include "ZephylTray/Registry/ServerMigration.hpp"

namespace zephyl {

namespace {

using Entries = ServerList::Entries;

std::string registryPath() {
  return joinPath(Servers::baseDir(), "servers.json");
}

std::string randomUUID() {
  return boost::uuids::to_string(boost::uuids::random_generator()());
}

/// Encodes the registry for its file.
Result<std::string> encoded(const Entries& entries) {
  std::string text = json::prettySorted(json::encode(entries));
  // The file could not be decoded again.
  if (!isValidUTF8(text)) return Error{"a text in it is not valid UTF-8"};
  return text;
}

std::string normalised(std::string_view fingerprint) {
  return lowerCased(trimmed(fingerprint));
}

/// Returns the first of `entries` with this normalised fingerprint, or the end if it is empty.
auto findFingerprint(auto& entries, const std::string& fingerprint) {
  if (fingerprint.empty()) return entries.end();
  return std::ranges::find(entries, fingerprint, [](const ServerEntry& entry) {
    return lowerCased(entry.tailnetFingerprint.value_or(""));
  });
}

/// Returns the configured ports of the agent and of the control server.
std::set<std::int64_t> configuredPorts() {
  return {Config::trayPort(), Config::onboardingPort()};
}

/// Returns whether paths that contain the id stay within their directories.
bool isPathComponent(const std::string& id) {
  return !id.empty() && id != "." && id != ".." && id.find('/') == std::string::npos;
}

void deleteTailnetState(const std::string& id) {
  if (!isPathComponent(id)) return;
  for (const auto& path : {Servers::tailnetStateDir(id), Servers::controlSocketPath(id)}) {
    if (const auto removed = removePath(path); !removed) {
      log("could not delete tailnet state for {}: {}", id, removed.error().message);
    }
  }
}

/// Moves the state of the only server to its directory in the new layout. Returns whether it was
/// moved.
bool adoptTailnetState(const std::string& from, const std::string& to) {
  if (!isDirectory(from)) return false;
  // Without a home directory the path is in a directory where any user can create files.
  if (!directories::applicationSupport() && !isOwnDirectory(from)) {
    log("ignoring tailnet state {}: it belongs to another user", from);
    return false;
  }
  auto moved = createDirectories(parentDirectory(to));
  if (moved) moved = movePath(from, to);
  if (moved) {
    log("migrated tailnet state to {}", to);
  } else {
    log("could not move tailnet state: {}", moved.error().message);
  }
  return moved.has_value();
}

}  // namespace

struct Servers::State {
  State(ThreadPool& pool, Clock& clock) : queue("com.zephyl.tray.servers", pool, clock) {}

  /// Returns the open registry. Aborts if it is not open, which is a programming error.
  static State& open();

  /// Returns the cached registry, or nullopt before the first use. Callable from any thread.
  std::optional<ServerList> cached();

  /// Returns ports for a new server.
  [[nodiscard]] ServerPorts allocatePorts(const Entries& entries) const;

  // Runs on the queue:
  /// Returns the registry, and reads the file if that has not succeeded yet. Fails in a shortage.
  Result<ServerList> current();
  /// Returns an empty registry instead of an error. Logs each reason once.
  ServerList currentOrEmpty();
  Result<Entries> loadLocked();
  Result<void> saveLocked(Entries entries);
  Result<void> write(const std::string& text);
  Result<void> keepUnreadable(const std::string& path);
  void publish(ServerList list);

  /// Calls `edit` with a copy of the entries and saves the copy if `edit` returns true. Returns
  /// whether it was saved, or the reason for a failure.
  template <typename Edit>
  Result<bool> change(Edit edit);
  /// Does the same for the entry with this id. Returns false if there is none.
  template <typename Edit>
  Result<bool> changeEntry(const std::string& id, Edit edit);

  SerialQueue queue;
  std::mutex cacheMutex;
  std::optional<ServerList> cache;
  std::string flushed;           // the text of the last flushed save
  bool unreadable = false;       // the file could not be decoded and is not copied yet
  bool addressesFolded = false;  // entries gained addresses at loading that are not saved yet
  std::set<std::string> reportedShortages;
  // The agent and the control server keep them for the whole run, even if the settings change.
  const std::set<std::int64_t> portsAtStart = configuredPorts();

  static inline std::atomic<State*> instance = nullptr;
};

Servers::State& Servers::State::open() {
  State* state = instance.load(std::memory_order_acquire);
  if (state == nullptr) {
    log("the server registry was used while not open");
    std::abort();
  }
  return *state;
}

std::optional<ServerList> Servers::State::cached() {
  const std::scoped_lock lock(cacheMutex);
  return cache;
}

void Servers::State::publish(ServerList list) {
  const std::scoped_lock lock(cacheMutex);
  cache = std::move(list);
}

ServerPorts Servers::State::allocatePorts(const Entries& entries) const {
  std::vector<ServerPorts> existing;
  for (const auto& entry : entries) existing.push_back(entry.ports);
  auto reserved = configuredPorts();
  reserved.insert(portsAtStart.begin(), portsAtStart.end());
  return ServerPorts::allocate(existing, reserved);
}

Result<ServerList> Servers::State::current() {
  if (auto list = cached()) return *std::move(list);
  auto entries = loadLocked();
  if (!entries) return entries.error();
  ServerList list(*std::move(entries));
  publish(list);
  return list;
}

ServerList Servers::State::currentOrEmpty() {
  auto list = current();
  if (list) return *std::move(list);
  const std::string& reason = list.error().message;
  if (reportedShortages.insert(reason).second) log("could not read servers.json: {}", reason);
  return ServerList(Entries{});
}

Result<Entries> Servers::State::loadLocked() {
  const std::string path = registryPath();
  const auto text = readFile(path);
  if (!text && text.error().isShortage) return text.error();
  unreadable = !text && fileExists(path);
  if (!text) return Entries();
  const auto file = json::parse(*text);
  auto entries = file ? json::decode<Entries>(*file) : Result<Entries>(file.error());
  if (!entries) {
    unreadable = true;
    log("servers.json is unreadable ({}); treating as empty", entries.error().message);
    return Entries();
  }
  addressesFolded = migration::foldAddressing(*file, *entries);
  return entries;
}

Result<void> Servers::State::saveLocked(Entries entries) {
  const auto text = encoded(entries);
  Result<void> saved = text ? write(*text) : Result<void>(text.error());
  if (saved) {
    addressesFolded = false;
    publish(ServerList(std::move(entries)));
  } else {
    log("could not write servers.json: {}", saved.error().message);
  }
  return saved;
}

Result<void> Servers::State::write(const std::string& text) {
  const std::string path = registryPath();
  if (auto created = createDirectories(baseDir()); !created) return created;
  if (auto kept = keepUnreadable(path); !kept) return kept;
  const bool same = text == flushed;
  auto written =
      writeFileAtomically(path, text, same ? Durability::unflushed : Durability::flushed);
  if (written) flushed = text;
  return written;
}

Result<void> Servers::State::keepUnreadable(const std::string& path) {
  if (!unreadable || !fileExists(path)) return {};
  const auto copy = copyAside(path);
  if (!copy) return copy.error();
  unreadable = false;
  log("copied the unreadable servers.json to {}", *copy);
  return {};
}

template <typename Edit>
Result<bool> Servers::State::change(Edit edit) {
  return queue.sync([&]() -> Result<bool> {
    const auto list = current();
    if (!list) {
      log("could not change servers.json: {}", list.error().message);
      return list.error();
    }
    Entries entries = list->entries();
    if (!edit(entries)) return false;
    if (const auto saved = saveLocked(std::move(entries)); !saved) return saved.error();
    return true;
  });
}

template <typename Edit>
Result<bool> Servers::State::changeEntry(const std::string& id, Edit edit) {
  return change([&](Entries& entries) {
    const auto entry = std::ranges::find(entries, id, &ServerEntry::id);
    if (entry == entries.end()) return false;
    edit(*entry);
    return true;
  });
}

Servers::Store::Store(ThreadPool& pool, Clock& clock)
    : state_(std::make_unique<State>(pool, clock)) {
  assert(State::instance.load() == nullptr && "the registry is open already");
  State::instance.store(state_.get(), std::memory_order_release);
}

Servers::Store::~Store() {
  State::instance.store(nullptr, std::memory_order_release);
}

std::string Servers::baseDir() {
  const auto support = directories::applicationSupport();
  return joinPath(support ? *support : directories::temporary(), "Zephyl");
}

Result<void> Servers::claimBaseDir() {
  if (directories::applicationSupport()) return {};
  auto claimed = claimPrivateDirectory(baseDir());
  if (!claimed) {
    return Error{claimed.error().message, "; set HOME or XDG_DATA_HOME to a directory of your own"};
  }
  return claimed;
}

std::string Servers::tailnetStateDir(const std::string& id) {
  return baseDir() + "/servers/" + id + "/tailnet";
}

std::string Servers::controlSocketPath(const std::string& id) {
  return joinPath(directories::home(), ".zephyl/run/" + id.substr(0, 8) + ".sock");
}

ServerList Servers::all() {
  State& state = State::open();
  if (auto list = state.cached()) return *std::move(list);
  return state.queue.sync([&] { return state.currentOrEmpty(); });
}

bool Servers::contains(const std::string& id) {
  const ServerList list = all();
  return std::ranges::find(list, id, &ServerEntry::id) != list.end();
}

std::vector<ServerEntry> Servers::enabled() {
  std::vector<ServerEntry> entries;
  for (const auto& entry : all()) {
    if (entry.enabled) entries.push_back(entry);
  }
  return entries;
}

std::optional<ServerEntry> Servers::matching(std::string_view fingerprint) {
  const ServerList list = all();
  const auto entry = findFingerprint(list.entries(), normalised(fingerprint));
  if (entry == list.end()) return std::nullopt;
  return *entry;
}

Result<ServerEntry> Servers::add(const std::string& label,
                                 const std::optional<std::string>& address,
                                 const std::optional<std::string>& fingerprint) {
  State& state = State::open();
  ServerEntry result;
  const auto saved = state.change([&](Entries& entries) {
    auto entry = findFingerprint(entries, normalised(fingerprint.value_or("")));
    if (entry != entries.end()) {
      entry->enabled = true;
      if (address && !isBlank(*address)) entry->address = address;
    } else {
      entry = entries.insert(entries.end(), {.id = randomUUID(),
                                             .label = label,
                                             .ordinal = nextOrdinal(entries),
                                             .address = address,
                                             .tailnetFingerprint = fingerprint,
                                             .agentId = randomUUID(),
                                             .ports = state.allocatePorts(entries),
                                             .enabled = true});
    }
    result = *entry;
    return true;
  });
  if (!saved) return saved.error();
  return result;
}

Result<void> Servers::update(const std::string& id,
                             const std::function<void(ServerEntry&)>& mutation) {
  const auto saved = State::open().changeEntry(id, mutation);
  return saved ? Result<void>() : saved.error();
}

Result<void> Servers::remove(const std::string& id) {
  const auto removed = State::open().change([&](Entries& entries) {
    std::erase_if(entries, [&](const ServerEntry& entry) { return entry.id == id; });
    return true;
  });
  if (!removed) return removed.error();
  deleteTailnetState(id);
  return {};
}

void Servers::replaceAll(std::vector<ServerEntry> entries) {
  State::open().change([&](Entries& all) {
    all = std::move(entries);
    return true;
  });
}

bool Servers::record(const std::string& id, std::string_view value,
                     std::optional<std::string> ServerEntry::*field) {
  const std::string_view text = trimmed(value);
  if (text.empty()) return false;
  bool changed = false;
  const auto saved = State::open().changeEntry(id, [&](ServerEntry& entry) {
    changed = entry.*field != text;
    if (changed) entry.*field = std::string(text);
  });
  return changed && saved.has_value();
}

bool Servers::recordDiscoveredAddress(const std::string& id, std::string_view address) {
  return record(id, address, &ServerEntry::address);
}

void Servers::recordDiscoveredName(const std::string& id, std::string_view name) {
  record(id, name, &ServerEntry::serverName);
}

void Servers::recordDiscoveredAccent(const std::string& id, std::string_view accent) {
  record(id, accent, &ServerEntry::serverAccent);
}

void Servers::migrateIfNeeded() {
  if (fileExists(registryPath())) return migrateEntries();
  const auto settings = Config::defaults().values();
  if (settings || !settings.error().isShortage) return migrateSingleServer();
  log("could not migrate to multi-server layout: {}", settings.error().message);
}

void Servers::migrateSingleServer() {
  const auto fingerprint = Config::defaults().string("tailnetFingerprint");
  const auto host = Config::defaults().string("serverHost").value_or("");
  const auto entry = migration::singleServer(randomUUID(), host, fingerprint);
  if (!entry) return;

  const std::string oldState = Config::legacyTailnetStateDir();
  const std::string newState = tailnetStateDir(entry->id);
  const bool moved = adoptTailnetState(oldState, newState);
  const auto saved = State::open().change([&](Entries& entries) {
    entries = {*entry};
    return true;
  });
  if (saved) {
    log("migrated to multi-server layout as {} ({})", entry->displayName(), entry->id);
  } else if (moved) {
    // The next launch gives the server another id and expects the state in the old directory.
    if (const auto back = movePath(newState, oldState); !back) {
      log("could not move tailnet state: {}", back.error().message);
    }
  }
}

void Servers::migrateEntries() {
  State& state = State::open();
  bool folded = false;
  bool reclaimed = false;
  const auto saved = state.change([&](Entries& entries) {
    folded = state.addressesFolded;
    reclaimed = migration::reclaimNaming(entries);
    return folded || reclaimed;
  });
  if (!saved) return;
  if (folded) log("folded serverHost/webTarget into a single address");
  if (reclaimed) log("reclaimed auto-generated server names");
}

}  // namespace zephyl

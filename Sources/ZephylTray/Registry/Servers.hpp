#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "System/Concurrency/Clock.hpp"
#include "System/Data/Result.hpp"
#include "ZephylTray/Registry/ServerEntry.hpp"

namespace zephyl {

class ThreadPool;

/// The registered servers as they were at one moment. It never changes; copies share it.
class ServerList {
 public:
  using Entries = std::vector<ServerEntry>;

  explicit ServerList(Entries entries)
      : entries_(std::make_shared<const Entries>(std::move(entries))) {}

  [[nodiscard]] const Entries& entries() const { return *entries_; }
  [[nodiscard]] auto begin() const { return entries_->begin(); }
  [[nodiscard]] auto end() const { return entries_->end(); }
  [[nodiscard]] std::size_t size() const { return entries_->size(); }
  [[nodiscard]] bool empty() const { return entries_->empty(); }
  const ServerEntry& operator[](std::size_t index) const { return (*entries_)[index]; }

 private:
  std::shared_ptr<const Entries> entries_;
};

/// The registry of the servers that the user has joined: base/servers.json, one JSON array in the
/// order in which the servers were added. One for the process; `Store` keeps it open.
///
/// The file is read once, on first use, and from then on the registry lives in memory: what
/// another program writes there is not seen, and overwritten by the next save. Reading never waits
/// for the disk. A change waits for its turn on the queue "com.zephyl.tray.servers", changes a
/// copy and saves it whole. When that fails one line is logged, memory and file keep what they had,
/// and the operation returns the reason. A file that cannot be understood counts as an empty
/// registry, and is copied aside before the first save replaces it.
///
/// Callable from any thread; a mutation given to `update` must not call back into the registry.
class Servers {
 public:
  struct State;

  /// The open registry. There is one at a time, made before the first operation and outliving the
  /// last; a new one starts by reading the file.
  class Store {
   public:
    /// `pool` and `clock` outlive it.
    Store(ThreadPool& pool, Clock& clock);
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

   private:
    std::unique_ptr<State> state_;
  };

  /// Where everything of the tray lies: Zephyl in the application-support directory, or in the
  /// temporary directory when there is no such.
  static std::string baseDir();
  /// Makes the base directory safe to use; called once, before anything in it is opened. In the
  /// temporary directory, where any user could have created it, it must belong to this user and be
  /// closed to others. Elsewhere it is used as it is. The error says what to do.
  static Result<void> claimBaseDir();
  /// Where the tailnet of a server keeps its state.
  static std::string tailnetStateDir(const std::string& id);
  /// The socket of a server's tailscaled.
  static std::string controlSocketPath(const std::string& id);

  static ServerList all();
  /// Whether there is a server with this id.
  static bool contains(const std::string& id);
  /// Those whose tailnets are to run, in the registry's order.
  static std::vector<ServerEntry> enabled();
  /// The first server of a tailnet; case and spaces around the fingerprint do not matter. A blank
  /// fingerprint matches none.
  static std::optional<ServerEntry> matching(std::string_view fingerprint);

  /// Enables the server with this fingerprint, and gives it the address unless that is blank; its
  /// label stays. Without a fingerprint or such a server, adds one with an ordinal, ports and
  /// identifiers of its own. Returns the entry, or why it could not be saved.
  static Result<ServerEntry> add(const std::string& label,
                                 const std::optional<std::string>& address,
                                 const std::optional<std::string>& fingerprint);
  /// Changes the entry with this id and saves, even when nothing changed. Does nothing when there
  /// is no such entry.
  static Result<void> update(const std::string& id,
                             const std::function<void(ServerEntry&)>& mutation);
  /// Removes the entry with this id, then deletes its tailnet state and control socket. Its
  /// processes are the caller's to stop. When the removal cannot be saved nothing is deleted.
  static Result<void> remove(const std::string& id);
  static void replaceAll(std::vector<ServerEntry> entries);

  /// What a server reports about itself. A blank value is ignored. True when the stored address
  /// changed.
  static bool recordDiscoveredAddress(const std::string& id, std::string_view address);
  static void recordDiscoveredName(const std::string& id, std::string_view name);
  static void recordDiscoveredAccent(const std::string& id, std::string_view accent);

  /// Brings older layouts into the current one; called once at launch, before the registry is
  /// used. What fails leaves the older layout in place for the next launch.
  static void migrateIfNeeded();

 private:
  static bool record(const std::string& id, std::string_view value,
                     std::optional<std::string> ServerEntry::*field);
  static void migrateSingleServer();
  static void migrateAddressingIfNeeded();
  static void migrateNamingIfNeeded();
};

}  // namespace zephyl

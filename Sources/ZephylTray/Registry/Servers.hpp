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

/// An immutable snapshot of the registered servers. Copies share it.
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

/// The registry of the servers that the user has joined: base/servers.json, a JSON array in the
/// order of addition. There is one per process, and a `Store` keeps it open.
///
/// The file is read once, on first use. Then the registry is kept in memory: changes by other
/// programs are not noticed and are overwritten by the next save. Reading never waits for the disk.
/// A change runs on the queue "com.zephyl.tray.servers", edits a copy and saves it as a whole. If
/// that fails, logs one line, leaves memory and file unchanged, and returns the reason. A file that
/// cannot be decoded counts as an empty registry and is copied aside before the first save replaces
/// it.
///
/// While the file cannot be read for lack of descriptors or memory, the registry appears empty,
/// changes fail, and each use tries to read the file again.
///
/// Callable from any thread. A mutation that is passed to `update` must not call the registry.
class Servers {
 public:
  struct State;

  /// Keeps the registry open. Only one may exist at a time. It must be constructed before the first
  /// operation and destroyed after the last. A new one reads the file again. No new server gets a
  /// port that is configured for the agent or the control server, now or when it was constructed.
  class Store {
   public:
    /// `pool` and `clock` must outlive it.
    Store(ThreadPool& pool, Clock& clock);
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

   private:
    std::unique_ptr<State> state_;
  };

  /// Returns the directory of all files of the tray: Zephyl in the application-support directory,
  /// or in the temporary directory if there is none.
  static std::string baseDir();
  /// Verifies that the base directory is safe to use. Must be called once, before any file in it is
  /// opened. In the temporary directory, where any user can create it, it must belong to this user
  /// and be closed to others. Elsewhere it is not checked. The error contains instructions for the
  /// user.
  static Result<void> claimBaseDir();
  /// Returns the directory of a server's tailnet state.
  static std::string tailnetStateDir(const std::string& id);
  /// Returns the path of the control socket of a server's tailscaled.
  static std::string controlSocketPath(const std::string& id);

  static ServerList all();
  /// Returns whether a server with this id exists.
  static bool contains(const std::string& id);
  /// Returns the enabled servers in the registry's order.
  static std::vector<ServerEntry> enabled();
  /// Returns the first server with this fingerprint. Ignores case and spaces around it. Returns
  /// nullopt if it is blank.
  static std::optional<ServerEntry> matching(std::string_view fingerprint);

  /// Enables the server with this fingerprint and sets its address unless `address` is blank. Its
  /// label is not changed. If there is no such server, or no fingerprint, adds one with a new
  /// ordinal, ports and identifiers. Returns the entry, or the reason why it could not be saved.
  static Result<ServerEntry> add(const std::string& label,
                                 const std::optional<std::string>& address,
                                 const std::optional<std::string>& fingerprint);
  /// Changes the entry with this id and saves, even if nothing has changed. Does nothing if there
  /// is no such entry.
  static Result<void> update(const std::string& id,
                             const std::function<void(ServerEntry&)>& mutation);
  /// Removes the entry with this id, then deletes its tailnet state and control socket. The caller
  /// must stop its processes. Deletes nothing if the removal cannot be saved.
  static Result<void> remove(const std::string& id);
  static void replaceAll(std::vector<ServerEntry> entries);

  /// Records values that a server reports about itself. Ignores blank values. Returns whether the
  /// stored address has changed.
  static bool recordDiscoveredAddress(const std::string& id, std::string_view address);
  static void recordDiscoveredName(const std::string& id, std::string_view name);
  static void recordDiscoveredAccent(const std::string& id, std::string_view accent);

  /// Migrates older layouts to the current one. Must be called once at launch, before the registry
  /// is used. A failed migration leaves the older layout for the next launch.
  static void migrateIfNeeded();

 private:
  static bool record(const std::string& id, std::string_view value,
                     std::optional<std::string> ServerEntry::*field);
  static void migrateSingleServer();
  static void migrateEntries();
};

}  // namespace zephyl

#pragma once

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "System/Concurrency/Clock.hpp"

namespace zephyl {

/// Determines from the calls of tray hosts whether the menu is open. Hosts differ: some never
/// report that the root was opened, some report it before they announce it, and some never report
/// that it was closed. A host is identified by the unique name of its connection.
///
/// A value without synchronization. Returned events must be forwarded in their order.
class MenuSession {
 public:
  enum class Event { needsUpdate, willOpen, didClose };
  using Events = std::vector<Event>;

  /// A menu without any call for this time counts as closed if its host has never sent "closed" for
  /// the root.
  static constexpr Duration silenceTimeout = std::chrono::seconds(30);
  /// The maximum number of remembered hosts that have sent "closed". When it is exceeded, all are
  /// forgotten.
  static constexpr std::size_t maxRememberedHosts = 8;
  /// An announcement of the root within this time after "opened" belongs to the same opening. An
  /// "opened" later than this after the last call for the root begins another opening.
  static constexpr Duration sameOpening = std::chrono::seconds(1);

  /// Handles an AboutToShow or AboutToShowGroup that names the root.
  [[nodiscard]] Events aboutToShowRoot(std::string_view host, Instant now);
  /// Handles "opened" of the root or of a submenu.
  [[nodiscard]] Events opened(std::string_view host, bool root, Instant now);
  /// Handles "closed" of the root.
  [[nodiscard]] Events closedRoot(std::string_view host);
  [[nodiscard]] Events clicked() { return close(); }
  /// Handles that the host has left the bus or the bus is lost.
  [[nodiscard]] Events hostGone() { return close(); }
  /// Records a call to the menu.
  void called(Instant now) { lastCall_ = now; }
  /// Closes a menu whose host has been silent for too long.
  [[nodiscard]] Events expire(Instant now);

  [[nodiscard]] bool isOpen() const { return open_; }
  /// Returns the host that has opened the menu, or empty while it is closed.
  [[nodiscard]] const std::string& host() const { return host_; }
  /// Returns when `expire` must be called, or nullopt while the menu is closed or its host is known
  /// to send "closed".
  [[nodiscard]] std::optional<Instant> deadline() const;

 private:
  /// Closes the menu, if it is open, and opens it with an update.
  Events reopen(std::string_view host, Instant now);
  Events open(Events before, std::string_view host, Instant now);
  Events close();

  bool open_ = false;
  std::string host_;
  std::set<std::string, std::less<>> closingHosts_;  // hosts that have sent "closed" for the root
  Instant lastCall_{};
  std::optional<Instant> rootOpened_;  // when the root was opened, if it was not closed since
  std::optional<Instant> rootCalled_;  // when it was opened or announced, if not closed since
};

}  // namespace zephyl

#pragma once

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "System/Concurrency/Clock.hpp"

namespace zephyl {

/// Whether the menu is open, concluded from what a tray host calls. Hosts differ: some never say
/// that the root was opened, some say it before they announce it, and some never say that it was
/// closed. A host is named by the unique name of its connection.
///
/// A value without a thread; the events that a call returns are to be passed on in their order.
class MenuSession {
 public:
  enum class Event { needsUpdate, willOpen, didClose };
  using Events = std::vector<Event>;

  /// A menu that nobody has called for so long counts as closed, if its host has never said
  /// "closed" for the root.
  static constexpr Duration silenceTimeout = std::chrono::seconds(30);
  /// Hosts that said "closed" are remembered up to this number; one more, and all are forgotten.
  static constexpr std::size_t rememberedHosts = 8;
  /// A host that announces the root within this time after it said "opened" means that opening, and
  /// one that says "opened" later than this after its last call for the root means another.
  static constexpr Duration sameOpening = std::chrono::seconds(1);

  /// AboutToShow, or AboutToShowGroup, named the root.
  [[nodiscard]] Events aboutToShowRoot(std::string_view host, Instant now);
  /// "opened" of the root, or of one of its submenus.
  [[nodiscard]] Events opened(std::string_view host, bool root, Instant now);
  /// "closed" of the root.
  [[nodiscard]] Events closedRoot(std::string_view host);
  [[nodiscard]] Events clicked() { return close(); }
  /// The host has left the bus, or the bus is lost.
  [[nodiscard]] Events hostGone() { return close(); }
  /// Any call to the menu.
  void called(Instant now) { lastCall_ = now; }
  /// Closes a menu that has been silent too long.
  [[nodiscard]] Events expire(Instant now);

  [[nodiscard]] bool isOpen() const { return open_; }
  /// The host that has opened the menu; empty while it is closed.
  [[nodiscard]] const std::string& host() const { return host_; }
  /// When to call `expire`; nullopt while the menu is closed or its host will say "closed".
  [[nodiscard]] std::optional<Instant> deadline() const;

 private:
  /// Closes the menu, if it is open, and opens it with an update.
  Events openAfresh(std::string_view host, Instant now);
  Events open(Events before, std::string_view host, Instant now);
  Events close();

  bool open_ = false;
  std::string host_;
  std::set<std::string, std::less<>> closingHosts_;  // have said "closed" for the root
  Instant lastCall_{};
  std::optional<Instant> rootOpened_;  // and not closed since
  std::optional<Instant> rootCalled_;  // opened or announced, and not closed since
};

}  // namespace zephyl

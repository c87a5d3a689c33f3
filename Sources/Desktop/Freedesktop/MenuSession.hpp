#pragma once

#include <optional>
#include <vector>

#include "System/Clock.hpp"

namespace zephyl {

/// Whether the menu is open, told from what a tray host calls. Hosts differ: some never say that
/// the root was opened, some say it before they announce it, and some forget that it was closed.
///
/// A value without a thread; what each call tells is to be passed on in that order.
class MenuSession {
 public:
  enum class Event { needsUpdate, willOpen, didClose };
  using Events = std::vector<Event>;

  /// A menu to which nobody has called for so long is taken for closed.
  static constexpr Duration silenceLimit = std::chrono::seconds(30);
  /// A host that announces the root within this time after it said "opened" means that opening.
  static constexpr Duration sameOpening = std::chrono::seconds(1);

  /// AboutToShow, or AboutToShowGroup, named the root.
  [[nodiscard]] Events aboutToShowRoot(Instant now);
  /// "opened" of the root, or of one of its submenus.
  [[nodiscard]] Events opened(bool root, Instant now);
  /// "closed" of the root.
  [[nodiscard]] Events closedRoot();
  [[nodiscard]] Events clicked() { return close(); }
  /// The host has left the bus, or the bus is lost.
  [[nodiscard]] Events hostGone() { return close(); }
  /// Any call to the menu.
  void called(Instant now) { lastCall_ = now; }
  /// Closes a menu that has been silent too long.
  [[nodiscard]] Events expire(Instant now);

  [[nodiscard]] bool isOpen() const { return open_; }
  /// When to call `expire`; none while it is closed.
  [[nodiscard]] std::optional<Instant> deadline() const;

 private:
  Events open(Events before, Instant now);
  Events close();

  bool open_ = false;
  Instant lastCall_{};
  std::optional<Instant> rootOpened_;  // and not closed since
};

}  // namespace zephyl

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Desktop/Desktop.hpp"
#include "Desktop/Terminal/Drawing/Canvas.hpp"
#include "System/Concurrency/Clock.hpp"

namespace zephyl {

/// Notifications as one line: the newest is shown, at first bright, then dim, then it is gone.
/// Pure; the owner says what time it is.
class NoticeLine {
 public:
  static constexpr Duration brightFor = std::chrono::seconds(8);
  static constexpr Duration dimFor = std::chrono::seconds(4);

  /// Takes the place of an earlier one with its identifier.
  void post(const Notification& notification, Instant now);
  void remove(const std::string& identifier);
  /// Forgets those whose time is over.
  void expire(Instant now);

  [[nodiscard]] const Notification* shown() const;
  /// When it will look different; none when nothing is shown.
  [[nodiscard]] std::optional<Instant> nextChange(Instant now) const;
  void draw(Canvas& canvas, const Area& area, Instant now) const;

 private:
  struct Posted {
    Notification notification;
    Instant at;
  };
  std::vector<Posted> posted_;
};

}  // namespace zephyl

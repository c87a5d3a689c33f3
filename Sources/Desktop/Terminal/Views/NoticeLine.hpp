#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Desktop/Desktop.hpp"
#include "Desktop/Terminal/Drawing/Canvas.hpp"
#include "System/Concurrency/Clock.hpp"

namespace zephyl {

/// Notifications in one line. The newest one is shown bright, later dim, and then removed. Pure.
/// The owner supplies the time.
class NoticeLine {
 public:
  static constexpr Duration brightFor = std::chrono::seconds(8);
  static constexpr Duration dimFor = std::chrono::seconds(4);

  /// Replaces an earlier notification with the same identifier.
  void post(const Notification& notification, Instant now);
  void remove(const std::string& identifier);
  /// Removes expired notifications.
  void expire(Instant now);

  [[nodiscard]] const Notification* shown() const;
  /// Returns when its appearance will change, or nullopt if nothing is shown.
  [[nodiscard]] std::optional<Instant> nextChange(Instant now) const;
  void draw(Canvas& canvas, const Area& area, Instant now) const;
  /// Draws it in place of the row above the last one of a log that fills the canvas, if there is
  /// room.
  void drawOverLog(Canvas& canvas, Instant now) const;

 private:
  struct Posted {
    Notification notification;
    Instant at;
  };
  std::vector<Posted> posted_;
};

}  // namespace zephyl

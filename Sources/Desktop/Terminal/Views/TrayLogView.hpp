#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "Desktop/Terminal/Views/LogBox.hpp"
#include "System/Data/LogRing.hpp"

namespace zephyl {

/// The newest lines of the tray's own log, and the box that shows them while the user has opened
/// it. Pure.
class TrayLogView {
 public:
  explicit TrayLogView(const TerminalCapabilities& capabilities) : capabilities_(capabilities) {}

  /// Adds untrusted lines.
  void append(std::vector<std::string> lines);
  void open();
  void close() { box_.reset(); }
  [[nodiscard]] bool isOpen() const { return box_.has_value(); }

  /// Handles a key, and closes the box if the key requires it. Requires an open box.
  LogBox::Outcome handle(const Key& key);
  /// Draws the box on the whole canvas. Requires an open box.
  void draw(Canvas& canvas);

  /// Returns all lines as text without control characters.
  [[nodiscard]] std::string text() const;
  /// Returns the newest lines that were never in an open box.
  [[nodiscard]] std::vector<std::string> unseen() const;
  [[nodiscard]] std::size_t unseenCount() const { return unseenLines_; }

 private:
  void updateBox();

  const TerminalCapabilities capabilities_;
  LogRing log_;
  std::size_t unseenLines_ = 0;
  std::optional<LogBox> box_;
};

}  // namespace zephyl

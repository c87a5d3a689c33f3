#pragma once

#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Desktop/Menu.hpp"
#include "Desktop/Terminal/Drawing/Canvas.hpp"
#include "Desktop/Terminal/Drawing/Key.hpp"

namespace zephyl {

/// The menu as a list whose submenus open in place. It may change while it is shown: submenus stay
/// open and the chosen row stays chosen, according to the rows' keys. If the chosen row is removed,
/// no row is chosen, so that Enter never acts on a row that the user has not seen. Pure.
class MenuView {
 public:
  /// The result of a key.
  struct Outcome {
    bool handled = false;
    bool opened = false;               ///< a submenu was opened
    std::optional<MenuAction> chosen;  ///< the action to run
  };

  void setMenu(Menu menu);
  Outcome handle(const Key& key);
  /// Draws the part of the menu around the chosen row.
  void draw(Canvas& canvas, const Area& area);

 private:
  using Path =
      std::vector<std::string>;  // the keys of the rows from the outermost menu to this row

  struct Row {
    const MenuEntry* entry = nullptr;
    Path path;
    bool open = false;

    [[nodiscard]] std::size_t depth() const { return path.size() - 1; }
    [[nodiscard]] bool hasSubmenu() const { return !entry->submenu.empty(); }
    [[nodiscard]] bool canBeChosen() const {
      return entry->kind == MenuEntry::Kind::item && entry->enabled &&
             (entry->action || hasSubmenu());
    }
  };
  /// A line on screen: the first or a later line of a row.
  struct Line {
    std::size_t row = 0;
    bool first = true;
    std::string text;
  };

  void list(const Menu& menu, const Path& above);
  void rebuildList();
  [[nodiscard]] std::optional<std::size_t> chosenRow() const;
  [[nodiscard]] std::optional<std::size_t> nextChoosable(std::size_t from, int step) const;
  void choose(std::size_t row);
  void move(int step);
  void moveToEnd(int step);
  void movePage(int step);
  Outcome activate(std::size_t row);
  Outcome setOpen(std::size_t row, bool open);
  Outcome leave(std::size_t row);
  Outcome press(const Key& key);

  [[nodiscard]] std::vector<Line> lines(int columns,
                                        const TerminalCapabilities& capabilities) const;
  void scrollTo(const std::vector<Line>& lines, int height);
  void drawLine(Canvas& canvas, const Area& area, int row, const Line& line) const;

  Menu menu_;
  std::set<Path> open_;
  std::vector<Row> rows_;
  std::optional<Path> chosen_;
  std::size_t lastRow_ = 0;  // the last index of the chosen row
  bool hasBeenShown_ = false;
  int scroll_ = 0;
  // The last drawing:
  Area area_;
  std::vector<std::size_t> rowOfLine_;
};

}  // namespace zephyl

#pragma once

#include <QListWidget>
#include <QStyledItemDelegate>
#include <functional>
#include <string>

#include "Desktop/Model/WindowModel.hpp"

namespace zephyl::sandbox::desktop {

/// Draws a server: a stripe in its color, its name, and its state with a dot.
class ServerRowPainter final : public QStyledItemDelegate {
 public:
  void paint(QPainter* painter, const QStyleOptionViewItem& option,
             const QModelIndex& index) const override;
  [[nodiscard]] QSize sizeHint(const QStyleOptionViewItem& option,
                               const QModelIndex& index) const override;
};

/// The list of servers, with a row to add one.
class ServerSidebar final : public QListWidget {
 public:
  ServerSidebar();

  std::function<void(const std::string& id)> onServer;
  /// `chosen` is true for a click or Return, and false for moving to the row.
  std::function<void(bool chosen)> onAdd;

  void showServers(const WindowModel& model);

 private:
  void makeRows(const std::vector<ServerEntry>& servers);
  [[nodiscard]] bool hasRowsOf(const std::vector<ServerEntry>& servers) const;
  void selectRow(const WindowModel& model);

  ServerRowPainter painter_;
};

}  // namespace zephyl::sandbox::desktop

#include "Desktop/View/ServerSidebar.hpp"

#include <QPainter>
#include <QSignalBlocker>

#include "Desktop/Client/ServerState.hpp"
#include "Desktop/View/Parts.hpp"
#include "Helpers/Dialogs/Program/Appearance.hpp"
#include "Helpers/Dialogs/Program/PlainText.hpp"

namespace zephyl::sandbox::desktop {
namespace {

enum Role { idRole = Qt::UserRole, stateRole, stateColorRole, accentRole };

constexpr int rowPadding = 8;
constexpr int stripeWidth = 4;
constexpr double stripeRadius = 2;
constexpr int stateDotSize = 9;
constexpr int sidebarWidth = 220;

QColor colorOf(ServerState state) {
  switch (state) {
    case ServerState::connected:
      return colors::good;
    case ServerState::networkUp:
      return colors::busy;
    case ServerState::disabled:
      return colors::idle;
    case ServerState::networkDown:
    case ServerState::notConnected:
      break;
  }
  return colors::bad;
}

QString capitalized(std::string_view text) {
  auto words = QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
  return words.left(1).toUpper() + words.mid(1);
}

void setIfChanged(QListWidgetItem& item, int role, const QVariant& value) {
  if (item.data(role) != value) item.setData(role, value);
}

void fill(QListWidgetItem& item, const ServerEntry& server, bool isCurrent) {
  const auto name = plainText(server.name);
  const auto words = isCurrent ? capitalized(wordsFor(stateOf(server))) : QStringLiteral("Unknown");
  setIfChanged(item, Qt::DisplayRole, name);
  setIfChanged(item, Qt::AccessibleTextRole, name + ", " + words);
  setIfChanged(item, stateRole, words);
  setIfChanged(item, stateColorRole, isCurrent ? colorOf(stateOf(server)) : colors::idle);
  setIfChanged(item, accentRole, QColor(QString::fromStdString(server.accent)));
}

std::string idOf(const QListWidgetItem& item) {
  return item.data(idRole).toString().toStdString();
}

bool isSelected(const QStyleOptionViewItem& option) {
  return option.state.testFlag(QStyle::State_Selected);
}

QColor textColor(const QStyleOptionViewItem& option) {
  return option.palette.color(isSelected(option) ? QPalette::HighlightedText : QPalette::Text);
}

/// Draws a stripe in the color of the server beside the content of its row.
void drawStripe(QPainter& painter, const QRect& content, const QColor& color) {
  if (!color.isValid()) return;
  painter.setBrush(color);
  painter.setPen(Qt::NoPen);
  const QRect stripe(content.left() - rowPadding - stripeWidth, content.top(), stripeWidth,
                     content.height());
  painter.drawRoundedRect(stripe, stripeRadius, stripeRadius);
}

/// Draws the dot of a row. On a selected row it has an edge, to be visible on the selection's
/// color.
void drawState(QPainter& painter, const QRect& line, const QStyleOptionViewItem& option,
               const QModelIndex& index) {
  const auto color = isSelected(option) ? textColor(option) : secondaryColor(option.palette);
  painter.setBrush(index.data(stateColorRole).value<QColor>());
  painter.setPen(isSelected(option) ? QPen(color) : QPen(Qt::NoPen));
  painter.drawEllipse(line.left(), line.center().y() - stateDotSize / 2, stateDotSize,
                      stateDotSize);
  painter.setPen(color);
  painter.drawText(line.adjusted(stateDotSize + rowPadding / 2, 0, 0, 0),
                   Qt::AlignVCenter | Qt::AlignLeft, index.data(stateRole).toString());
}

}  // namespace

QSize ServerRowPainter::sizeHint(const QStyleOptionViewItem& option, const QModelIndex&) const {
  return {sidebarWidth / 2, 2 * option.fontMetrics.height() + 2 * rowPadding};
}

void ServerRowPainter::paint(QPainter* painter, const QStyleOptionViewItem& option,
                             const QModelIndex& index) const {
  auto background = option;
  initStyleOption(&background, index);
  background.text.clear();
  option.widget->style()->drawControl(QStyle::CE_ItemViewItem, &background, painter, option.widget);

  painter->save();
  painter->setRenderHint(QPainter::Antialiasing);
  const bool isServer = !index.data(idRole).toString().isEmpty();
  const auto content =
      option.rect.adjusted(stripeWidth + 2 * rowPadding, rowPadding, -rowPadding, -rowPadding);
  auto name = content;
  if (isServer) name.setHeight(content.height() / 2);
  const auto text = index.data(Qt::DisplayRole).toString();
  painter->setPen(textColor(option));
  painter->drawText(name, Qt::AlignVCenter | Qt::AlignLeft,
                    option.fontMetrics.elidedText(text, Qt::ElideRight, name.width()));
  if (isServer) {
    drawStripe(*painter, content, index.data(accentRole).value<QColor>());
    drawState(*painter, content.adjusted(0, name.height(), 0, 0), option, index);
  }
  painter->restore();
}

ServerSidebar::ServerSidebar() {
  setAccessibleName(QStringLiteral("Servers"));
  setItemDelegate(&painter_);
  setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  setFrameShape(QFrame::NoFrame);
  setFixedWidth(sidebarWidth);
  connect(this, &QListWidget::currentItemChanged, this, [this](const QListWidgetItem* item) {
    if (item == nullptr) return;
    const auto server = idOf(*item);
    server.empty() ? onAdd(false) : onServer(server);
  });
  const auto choose = [this](const QListWidgetItem* item) {
    if (idOf(*item).empty()) onAdd(true);
  };
  connect(this, &QListWidget::itemClicked, this, choose);
  connect(this, &QListWidget::itemActivated, this, choose);
}

void ServerSidebar::showServers(const WindowModel& model) {
  const QSignalBlocker blocker(this);
  // A list that gets the focus selects its first row, so it must still be empty.
  if (model.page() == WindowModel::Page::none) return clear();
  const auto& servers = model.servers();
  if (!hasRowsOf(servers)) makeRows(servers);
  const bool isCurrent = model.link() == WindowModel::Link::answers;
  for (int row = 0; row < count() - 1; ++row) {
    fill(*item(row), servers[static_cast<std::size_t>(row)], isCurrent);
  }
  selectRow(model);
}

bool ServerSidebar::hasRowsOf(const std::vector<ServerEntry>& servers) const {
  if (count() != static_cast<int>(servers.size()) + 1) return false;
  for (int row = 0; row < count() - 1; ++row) {
    if (idOf(*item(row)) != servers[static_cast<std::size_t>(row)].id) return false;
  }
  return true;
}

void ServerSidebar::makeRows(const std::vector<ServerEntry>& servers) {
  clear();
  for (const auto& server : servers) {
    addItem(plainText(server.name));
    item(count() - 1)->setData(idRole, QString::fromStdString(server.id));
  }
  addItem(QStringLiteral("Add server…"));
}

void ServerSidebar::selectRow(const WindowModel& model) {
  const auto* const selected = model.selected();
  int row = count() - 1;
  for (int i = 0; selected != nullptr && i < count(); ++i) {
    if (idOf(*item(i)) == selected->id) row = i;
  }
  if (row != currentRow()) setCurrentRow(row);
}

}  // namespace zephyl::sandbox::desktop

#include "Desktop/View/ServerSidebar.hpp"

#include <QPainter>
#include <QSignalBlocker>

#include "Desktop/Client/ServerState.hpp"
#include "Desktop/View/Parts.hpp"
#include "Helpers/Dialogs/Program/Appearance.hpp"
#include "Helpers/Dialogs/Program/PlainText.hpp"

namespace zephyl::sandbox::desktop {
namespace {

enum Role { id = Qt::UserRole, state, stateColor, accent };

constexpr int padding = 8;
constexpr int stripeWidth = 4;
constexpr int dotSize = 9;
constexpr int sidebarWidth = 220;

QColor colorOf(ServerState state) {
  switch (state) {
    case ServerState::connected:
      return stateColors::good;
    case ServerState::networkUp:
      return stateColors::busy;
    case ServerState::disabled:
      return stateColors::idle;
    case ServerState::networkDown:
    case ServerState::notConnected:
      break;
  }
  return stateColors::bad;
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
  setIfChanged(item, state, words);
  setIfChanged(item, stateColor, isCurrent ? colorOf(stateOf(server)) : stateColors::idle);
  setIfChanged(item, accent, QColor(QString::fromStdString(server.accent)));
}

std::string idOf(const QListWidgetItem& item) {
  return item.data(id).toString().toStdString();
}

/// The pen's colour surrounds the dot, which would hardly be seen on the colour of a selection.
void drawState(QPainter& painter, const QRect& line, const QModelIndex& index, bool isSelected) {
  const QRect dot(line.left(), line.center().y() - dotSize / 2, dotSize, dotSize);
  const auto pen = painter.pen();
  painter.setBrush(index.data(stateColor).value<QColor>());
  painter.setPen(isSelected ? pen : Qt::NoPen);
  painter.drawEllipse(dot);
  painter.setPen(pen);
  const auto text = line.adjusted(dotSize + padding / 2, 0, 0, 0);
  painter.drawText(text, Qt::AlignVCenter | Qt::AlignLeft, index.data(state).toString());
}

}  // namespace

QSize ServerRowPainter::sizeHint(const QStyleOptionViewItem& option, const QModelIndex&) const {
  return {sidebarWidth / 2, 2 * option.fontMetrics.height() + 2 * padding};
}

void ServerRowPainter::paint(QPainter* painter, const QStyleOptionViewItem& option,
                             const QModelIndex& index) const {
  auto background = option;
  initStyleOption(&background, index);
  background.text.clear();
  option.widget->style()->drawControl(QStyle::CE_ItemViewItem, &background, painter, option.widget);

  painter->save();
  painter->setRenderHint(QPainter::Antialiasing);
  const bool isSelected = option.state.testFlag(QStyle::State_Selected);
  const auto& palette = option.palette;
  const auto textColor = palette.color(isSelected ? QPalette::HighlightedText : QPalette::Text);
  const auto content = option.rect.adjusted(stripeWidth + 2 * padding, padding, -padding, -padding);
  painter->setPen(textColor);
  const bool isServer = !index.data(id).toString().isEmpty();
  const int nameHeight = isServer ? content.height() / 2 : content.height();
  const QRect nameLine(content.left(), content.top(), content.width(), nameHeight);
  const auto name = index.data(Qt::DisplayRole).toString();
  painter->drawText(nameLine, Qt::AlignVCenter | Qt::AlignLeft,
                    option.fontMetrics.elidedText(name, Qt::ElideRight, nameLine.width()));
  if (isServer) {
    if (const auto color = index.data(accent).value<QColor>(); color.isValid()) {
      painter->setBrush(color);
      painter->setPen(Qt::NoPen);
      painter->drawRoundedRect(
          QRect(option.rect.left() + padding, content.top(), stripeWidth, content.height()), 2, 2);
    }
    painter->setPen(isSelected ? textColor : secondaryColor(palette));
    drawState(*painter, content.adjusted(0, nameHeight, 0, 0), index, isSelected);
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
  // A list that gets the keyboard chooses its first row, so there must be none yet.
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
    item(count() - 1)->setData(id, QString::fromStdString(server.id));
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

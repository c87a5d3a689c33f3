#include "Helpers/Dialogs/Program/Symbol.hpp"

#include <QGuiApplication>
#include <QPainter>
#include <QPainterPath>

namespace zephyl {

namespace {

using Style = Alert::Style;

QColor colorOf(Style style) {
  switch (style) {
    case Style::critical:
      return {0xd6, 0x2f, 0x2f};
    case Style::question:
    case Style::information:
      return {0x2f, 0x6f, 0xd0};
    case Style::warning:
      break;
  }
  return {0xe8, 0x89, 0x0c};
}

/// Returns whether the style indicates no problem.
bool isCalm(Style style) {
  return style == Style::question || style == Style::information;
}

QString markOf(Style style) {
  if (style == Style::question) return QStringLiteral("?");
  return style == Style::information ? QStringLiteral("i") : QStringLiteral("!");
}

/// Draws on the unit square: a disc for a calm style, otherwise a triangle with corners rounded by
/// the pen.
void drawShape(QPainter& painter, Style style) {
  const QColor color = colorOf(style);
  painter.setBrush(color);
  if (isCalm(style)) {
    painter.setPen(Qt::NoPen);
    painter.drawEllipse(QRectF(0.04, 0.04, 0.92, 0.92));
    return;
  }
  painter.setPen(QPen(color, 0.14, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
  painter.drawPolygon(QPolygonF({{0.5, 0.12}, {0.92, 0.85}, {0.08, 0.85}}));
}

void drawMark(QPainter& painter, Style style) {
  QFont font = QGuiApplication::font();
  font.setBold(true);
  font.setPixelSize(100);  // scaled below, because fonts have no sizes below 1
  QPainterPath mark;
  mark.addText(0, 0, font, markOf(style));
  const QRectF bounds = mark.boundingRect();
  painter.translate(0.5, isCalm(style) ? 0.5 : 0.58);
  const double height = isCalm(style) ? 0.56 : 0.5;
  painter.scale(height / bounds.height(), height / bounds.height());
  painter.translate(-bounds.center());
  painter.setPen(Qt::NoPen);
  painter.setBrush(Qt::white);
  painter.drawPath(mark);
}

}  // namespace

QPixmap symbolOf(Style style, int size, qreal scale) {
  QPixmap pixmap(QSize(size, size) * scale);
  pixmap.fill(Qt::transparent);
  QPainter painter(&pixmap);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.scale(pixmap.width(), pixmap.height());
  drawShape(painter, style);
  drawMark(painter, style);
  painter.end();
  pixmap.setDevicePixelRatio(scale);
  return pixmap;
}

QString nameOfSymbol(Style style) {
  switch (style) {
    case Style::critical:
      return QStringLiteral("Critical");
    case Style::question:
      return QStringLiteral("Question");
    case Style::information:
      return QStringLiteral("Information");
    case Style::warning:
      break;
  }
  return QStringLiteral("Warning");
}

}  // namespace zephyl

#include "Desktop/View/AgentBar.hpp"

#include <QClipboard>
#include <QGuiApplication>
#include <chrono>

namespace zephyl::sandbox::desktop {
namespace {

constexpr int barMargin = 10;
constexpr int moodDotSize = 10;
constexpr int progressWidth = 160;
constexpr int progressSteps = 1000;
constexpr std::chrono::seconds announcementTime(3);

QColor colorOf(AgentLine::Mood mood) {
  switch (mood) {
    case AgentLine::Mood::calm:
      return colors::good;
    case AgentLine::Mood::busy:
      return colors::busy;
    case AgentLine::Mood::alarming:
      break;
  }
  return colors::bad;
}

}  // namespace

AgentBar::AgentBar(WindowModel& model) : model_(model) {
  layout_.setContentsMargins(barMargin, barMargin, barMargin, barMargin);
  progress_.setAccessibleName(QStringLiteral("Indexing"));
  progress_.setRange(0, progressSteps);
  progress_.setTextVisible(false);
  progress_.setFixedWidth(progressWidth);
  announcement_.setSingleShot(true);
  connect(&announcement_, &QTimer::timeout, this, [this] { showAgent(); });
  connect(&restart_, &QPushButton::clicked, this, [this] { restart(); });
  connect(&copy_, &QPushButton::clicked, this, [this] { copyDiagnostics(); });
  layout_.addWidget(&dot_);
  layout_.addWidget(&text_, 1);
  layout_.addWidget(&progress_);
  layout_.addWidget(&restart_);
  layout_.addWidget(&copy_);
}

void AgentBar::showAgent() {
  if (model_.link() == WindowModel::Link::answers) return showLine(model_.agent());
  showLine({"Agent unknown", AgentLine::Mood::busy});
}

void AgentBar::showLine(const AgentLine& line) {
  dot_.setPixmap(dotOf(colorOf(line.mood), moodDotSize, devicePixelRatio()));
  if (!announcement_.isActive()) text_.showText(line.text);
  progress_.setVisible(line.progress.has_value());
  progress_.setValue(static_cast<int>(line.progress.value_or(0) * progressSteps));
}

void AgentBar::restart() {
  restart_.setEnabled(false);
  model_.restartAgent([this](const std::optional<std::string>& failure) {
    restart_.setEnabled(true);
    announce(failure.value_or("The agent restarts…"));
  });
}

void AgentBar::copyDiagnostics() {
  model_.copyDiagnostics([this](const Result<std::string>& diagnostics) {
    if (!diagnostics) return announce(diagnostics.error().message);
    QGuiApplication::clipboard()->setText(QString::fromStdString(*diagnostics));
    announce("The diagnostics are on the clipboard.");
  });
}

void AgentBar::announce(const std::string& message) {
  text_.showText(message);
  announcement_.start(announcementTime);
}

}  // namespace zephyl::sandbox::desktop

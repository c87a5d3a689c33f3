#pragma once

#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>
#include <QWidget>
#include <string>

#include "Desktop/Model/WindowModel.hpp"
#include "Desktop/View/Parts.hpp"

namespace zephyl::sandbox::desktop {

/// A bar with the state of the agent and buttons for it.
class AgentBar final : public QWidget {
 public:
  /// The model must outlive the bar.
  explicit AgentBar(WindowModel& model);

  void showAgent();

 private:
  void showLine(const AgentLine& line);
  void restart();
  void copyDiagnostics();
  /// Shows a message for a while instead of the state.
  void announce(const std::string& message);

  WindowModel& model_;
  QHBoxLayout layout_{this};
  QLabel dot_;
  TextLabel text_;
  QProgressBar progress_;
  QPushButton restart_{QStringLiteral("Restart &agent")};
  QPushButton copy_{QStringLiteral("Copy &diagnostics")};
  QTimer announcement_;
};

}  // namespace zephyl::sandbox::desktop

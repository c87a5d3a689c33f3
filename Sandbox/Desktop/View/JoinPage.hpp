#pragma once

#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>
#include <QWidget>

#include "Desktop/Model/WindowModel.hpp"
#include "Desktop/View/Parts.hpp"

namespace zephyl::sandbox::desktop {

/// A page that asks for an invite key, and shows the progress of joining.
class JoinPage final : public QWidget {
 public:
  /// The model must outlive the page.
  explicit JoinPage(WindowModel& model);

  void showProgress();
  void editKey();
  [[nodiscard]] bool hasTypedText() const { return !key_.text().isEmpty(); }

 private:
  void addField();
  void addProgress();
  void join();
  [[nodiscard]] std::string errorText() const;

  WindowModel& model_;
  QVBoxLayout layout_{this};
  QHBoxLayout row_;
  QLabel title_{QStringLiteral("Join a Zephyl server")};
  TextLabel introduction_;
  QLineEdit key_;
  QPushButton join_{QStringLiteral("&Join")};
  TextLabel error_;
  QProgressBar bar_;
  TextLabel progress_;
  bool wasUnderWay_ = false;
};

}  // namespace zephyl::sandbox::desktop

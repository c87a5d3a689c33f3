#pragma once

#include <QCheckBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QMessageBox>
#include <QPushButton>
#include <QVBoxLayout>
#include <QWidget>
#include <memory>
#include <string>

#include "Desktop/Model/WindowModel.hpp"
#include "Desktop/View/ColorButton.hpp"
#include "Desktop/View/ConnectionRows.hpp"
#include "Desktop/View/FolderBox.hpp"
#include "Desktop/View/Parts.hpp"

namespace zephyl::sandbox::desktop {

/// The page of the selected server: its properties, its connection and its folders.
class ServerPage final : public QWidget {
 public:
  /// The model must outlive the page.
  explicit ServerPage(WindowModel& model);

  void showServer(const ServerEntry& server);
  /// Focuses the name and selects its text.
  void editName();
  /// Asks whether to remove the shown server.
  void confirmRemoval();
  [[nodiscard]] bool hasTypedText() const { return name_.isEdited(); }

 private:
  void addProperties();
  void addButtons();
  void addFolders();
  void rename(const std::string& name);
  void showBoxes(const ServerEntry& server);
  /// Returns a callback that shows why a change of the shown server failed.
  [[nodiscard]] WindowModel::Done reportFailure();
  void openInBrowser() const;

  WindowModel& model_;
  ServerEntry server_;
  QVBoxLayout layout_{this};
  QFormLayout form_;
  EditedField name_{QStringLiteral("Name")};
  ColorButton color_;
  QCheckBox enabled_{QStringLiteral("&Connect to this server")};
  ConnectionRows connection_;
  TextLabel failure_;
  QHBoxLayout buttons_;
  QPushButton browser_{QStringLiteral("Open in &browser")};
  QPushButton remove_{QStringLiteral("&Remove…")};
  FolderBox folders_;
  std::unique_ptr<QMessageBox> question_;
};

}  // namespace zephyl::sandbox::desktop

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

/// The server that is selected: its properties, its connection and its folders.
class ServerPage final : public QWidget {
 public:
  /// The model outlives the page.
  explicit ServerPage(WindowModel& model);

  void showServer(const ServerEntry& server);
  /// Marks the name, to be typed over.
  void editName();
  /// Asks whether to remove the server that is shown.
  void confirmRemoval();
  [[nodiscard]] bool hasTypedText() const { return name_.isEdited(); }

 private:
  void addProperties();
  void addButtons();
  void addFolders();
  void rename(const std::string& name);
  void showBoxes(const ServerEntry& server);
  /// Shows why a change of the server that is shown was not made.
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

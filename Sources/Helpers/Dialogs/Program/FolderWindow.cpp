#include "Helpers/Dialogs/Program/FolderWindow.hpp"

#include <QDir>

#include "Helpers/Dialogs/Program/PlainText.hpp"
#include "Helpers/Dialogs/Program/Screens.hpp"

namespace zephyl {

namespace {

constexpr int messageMargin = 12;
constexpr QSize pickerSize{680, 460};

}  // namespace

FolderWindow::FolderWindow(Conversation& conversation, const FolderRequest& request)
    : DialogWindow(conversation, WindowGuard::Policy::never) {
  setWindowTitle(buttonText(request.prompt));
  setAccessibleDescription(plainText(request.message));
  message_.setTextFormat(Qt::PlainText);
  message_.setWordWrap(true);
  message_.setText(plainText(request.message));
  message_.setTextInteractionFlags(Qt::TextSelectableByMouse);
  message_.setContentsMargins(messageMargin, messageMargin, messageMargin, 0);

  // Not the desktop's own dialog, because its visibility cannot be observed. The tray uses that
  // dialog elsewhere.
  picker_.setOption(QFileDialog::DontUseNativeDialog);
  picker_.setOption(QFileDialog::ShowDirsOnly);
  picker_.setFileMode(QFileDialog::Directory);
  picker_.setDirectory(QDir::homePath());
  picker_.setLabelText(QFileDialog::Accept, buttonText(request.prompt));
  picker_.setWindowFlags(Qt::Widget);
  picker_.setSizeGripEnabled(false);
  picker_.setAccessibleName(plainText(request.prompt));
  nameParts();
  for (const char* const unneeded : {"fileTypeLabel", "fileTypeCombo"}) {
    if (auto* const widget = picker_.findChild<QWidget*>(unneeded)) widget->hide();
  }
  connect(&picker_, &QFileDialog::finished, this, [this](int result) {
    if (result != QDialog::Accepted) return reject();
    answer(ChosenFolder{picker_.selectedFiles().value(0).toStdString()});
  });

  layout_.setContentsMargins(0, 0, 0, 0);
  layout_.setSpacing(0);
  layout_.addWidget(&message_);
  layout_.addWidget(&picker_, 1);
  resize(pickerSize.boundedTo(roomOnEveryScreen()));
}

void FolderWindow::nameParts() {
  const std::pair<const char*, QString> names[] = {{"lookInCombo", QStringLiteral("Look in")},
                                                   {"sidebar", QStringLiteral("Places")},
                                                   {"listView", QStringLiteral("Folders")},
                                                   {"treeView", QStringLiteral("Folders")},
                                                   {"fileNameEdit", QStringLiteral("Folder")}};
  for (const auto& [part, name] : names) {
    if (auto* const widget = picker_.findChild<QWidget*>(part)) widget->setAccessibleName(name);
  }
}

}  // namespace zephyl

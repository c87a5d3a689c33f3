#pragma once

#include <QFileDialog>
#include <QLabel>
#include <QVBoxLayout>

#include "Helpers/Dialogs/Program/DialogWindow.hpp"

namespace zephyl {

/// Asks for a folder.
class FolderWindow final : public DialogWindow {
 public:
  FolderWindow(Conversation& conversation, const FolderRequest& request);

 private:
  [[nodiscard]] DialogReport safeAnswer() const override { return ChosenFolder{}; }
  /// For who cannot see what they are; the toolkit leaves them without a name.
  void nameParts();

  QVBoxLayout layout_{this};
  QLabel message_;
  QFileDialog picker_;
};

}  // namespace zephyl

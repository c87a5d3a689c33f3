#pragma once

#include <QFileDialog>
#include <QLabel>
#include <QVBoxLayout>

#include "Helpers/Dialogs/Program/DialogWindow.hpp"

namespace zephyl {

/// A window in which the user chooses a folder.
class FolderWindow final : public DialogWindow {
 public:
  FolderWindow(Conversation& conversation, const FolderRequest& request);

 private:
  [[nodiscard]] DialogReport safeAnswer() const override { return ChosenFolder{}; }
  /// Sets the accessible names of the parts that the toolkit leaves unnamed.
  void nameParts();

  QVBoxLayout layout_{this};
  QLabel message_;
  QFileDialog picker_;
};

}  // namespace zephyl

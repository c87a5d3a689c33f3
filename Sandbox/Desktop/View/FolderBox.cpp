#include "Desktop/View/FolderBox.hpp"

#include <algorithm>

#include "Helpers/Dialogs/Program/PlainText.hpp"

namespace zephyl::sandbox::desktop {
namespace {

constexpr int minListHeight = 60;

bool isSharedWith(const FolderEntry& folder, const std::string& serverId) {
  if (!folder.servers || folder.servers->empty()) return true;
  return std::ranges::find(*folder.servers, serverId) != folder.servers->end();
}

/// Returns the widget before this one in the order of the Tab key.
QWidget* focusBefore(const QWidget& widget) {
  auto* before = widget.previousInFocusChain();
  while (before != &widget && (before->focusPolicy() & Qt::TabFocus) == 0) {
    before = before->previousInFocusChain();
  }
  return before;
}

std::string noteFor(const std::optional<std::vector<FolderEntry>>& folders) {
  if (!folders) return "The folders are shown when the agent runs.";
  return folders->empty() ? "No folder is shared from this computer." : "";
}

}  // namespace

FolderBox::FolderBox() : QGroupBox(QStringLiteral("Folders shared with this server")) {
  area_.setWidget(&list_);
  area_.setWidgetResizable(true);
  area_.setFrameShape(QFrame::NoFrame);
  area_.viewport()->setAutoFillBackground(false);
  list_.setAutoFillBackground(false);
  area_.setFocusPolicy(Qt::NoFocus);
  area_.setMinimumHeight(minListHeight);
  listLayout_.setContentsMargins(0, 0, 0, 0);
  listLayout_.setAlignment(Qt::AlignTop);
  listLayout_.addWidget(&note_);
  note_.setSecondary();
  layout_.addWidget(&area_, 1);
  layout_.addWidget(&share_, 0, Qt::AlignLeft);
  connect(&share_, &QPushButton::clicked, this, [this] { onShare(); });
}

void FolderBox::showFolders(const std::optional<std::vector<FolderEntry>>& folders,
                            const std::string& serverId) {
  const auto known = folders.value_or(std::vector<FolderEntry>());
  note_.showText(noteFor(folders));
  if (!hasRowsOf(known)) makeRows(known);
  for (std::size_t i = 0; i < known.size(); ++i) {
    rows_[i].box->setChecked(isSharedWith(known[i], serverId));
  }
}

void FolderBox::setChoosing(bool choosing) {
  share_.setEnabled(!choosing);
  share_.setText(choosing ? QStringLiteral("Choosing a folder…")
                          : QStringLiteral("&Share a folder…"));
}

bool FolderBox::hasRowsOf(const std::vector<FolderEntry>& folders) const {
  return std::ranges::equal(rows_, folders, {}, &Row::root, &FolderEntry::root);
}

void FolderBox::makeRows(const std::vector<FolderEntry>& folders) {
  rows_.clear();
  QWidget* previous = focusBefore(share_);
  for (const auto& folder : folders) {
    auto box = std::make_unique<QCheckBox>(buttonText(folder.root));
    outline(*box);
    box->setAccessibleName(plainText(folder.root));
    connect(box.get(), &QCheckBox::clicked, this,
            [this, root = folder.root](bool checked) { onShared(root, checked); });
    listLayout_.addWidget(box.get());
    setTabOrder(previous, box.get());
    previous = box.get();
    rows_.push_back({folder.root, std::move(box)});
  }
  setTabOrder(previous, &share_);
}

}  // namespace zephyl::sandbox::desktop

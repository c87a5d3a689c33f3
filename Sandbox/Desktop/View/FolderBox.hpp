#pragma once

#include <QCheckBox>
#include <QGroupBox>
#include <QPushButton>
#include <QScrollArea>
#include <QVBoxLayout>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Desktop/Client/Records.hpp"
#include "Desktop/View/Parts.hpp"

namespace zephyl::sandbox::desktop {

/// The list of the agent's folders. Each has a box for sharing it with one server.
class FolderBox final : public QGroupBox {
 public:
  FolderBox();

  std::function<void(const std::string& root, bool shared)> onShared;
  /// The user asked to share another folder.
  std::function<void()> onShare;

  /// `folders` is nullopt while the agent does not answer.
  void showFolders(const std::optional<std::vector<FolderEntry>>& folders,
                   const std::string& serverId);
  /// Disables the button while a folder is being chosen.
  void setChoosing(bool choosing);

 private:
  struct Row {
    std::string root;
    std::unique_ptr<QCheckBox> box;
  };

  void makeRows(const std::vector<FolderEntry>& folders);
  [[nodiscard]] bool hasRowsOf(const std::vector<FolderEntry>& folders) const;

  QVBoxLayout layout_{this};
  QScrollArea area_;
  QWidget list_;
  QVBoxLayout listLayout_{&list_};
  TextLabel note_;
  QPushButton share_{QStringLiteral("&Share a folder…")};
  std::vector<Row> rows_;
};

}  // namespace zephyl::sandbox::desktop

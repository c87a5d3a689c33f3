#include "Helpers/Updates/Client/DownloadWindow.hpp"

#include <utility>

#include "Helpers/Updates/Client/UpdateAlerts.hpp"
#include "System/Concurrency/MainLoop.hpp"

namespace zephyl {

DownloadWindow::DownloadWindow(const Runtime& runtime, Dialogs& dialogs, const UpdateOffer& offer,
                               std::function<void(const std::optional<AlertAnswer>& answer)> done)
    : runtime_(runtime),
      dialog_(dialogs.presentAlert(alerts::updateDownloading(offer), std::move(done))) {}

void DownloadWindow::showProgress(const UpdateProgress& progress) {
  progress_ = progress;
  const bool isWhole = progress.total > 0 && progress.received >= progress.total;
  if (isWhole || !pause_) draw();
}

void DownloadWindow::draw() {
  if (!progress_) return pause_.cancel();
  dialog_->showProgress(alerts::downloadProgress(*std::exchange(progress_, std::nullopt)));
  pause_ = runtime_.mainLoop.after(runtime_.clock, progressInterval, [this] { draw(); });
}

}  // namespace zephyl

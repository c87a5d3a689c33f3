#pragma once

#include <functional>
#include <optional>

#include "Desktop/Dialogs.hpp"
#include "Helpers/Updates/Protocol/UpdateMessages.hpp"
#include "System/Concurrency/Clock.hpp"
#include "System/Concurrency/Runtime.hpp"

namespace zephyl {

/// The window that shows the progress of a download and can cancel it. Main thread only.
class DownloadWindow {
 public:
  /// The minimum interval between two displayed progress values.
  static constexpr Duration progressInterval = std::chrono::milliseconds(250);

  /// Opens the window, which the destructor closes. Calls `done` later: with an answer if the user
  /// cancels, with nullopt if the window could not be shown. `dialogs` and the objects that
  /// `runtime` refers to must outlive it.
  DownloadWindow(const Runtime& runtime, Dialogs& dialogs, const UpdateOffer& offer,
                 std::function<void(const std::optional<AlertAnswer>& answer)> done);
  DownloadWindow(const DownloadWindow&) = delete;
  DownloadWindow& operator=(const DownloadWindow&) = delete;

  /// Shows a progress value: at once if the download is complete or the interval has passed,
  /// otherwise at the end of the interval, unless a newer value arrives before.
  void showProgress(const UpdateProgress& progress);
  void bringToFront() { dialog_->bringToFront(); }

 private:
  void draw();

  const Runtime runtime_;
  const Dialogs::Handle dialog_;
  std::optional<UpdateProgress> progress_;  // not drawn yet
  Timer pause_;                             // until the next value may be drawn
};

}  // namespace zephyl

#include "Desktop/Headless/HeadlessDesktop.hpp"

#include "System/Concurrency/MainLoop.hpp"
#include "System/Files/Log.hpp"

namespace zephyl {

void HeadlessDesktop::openURL(const std::string& url) {
  log("cannot open {}: there is no desktop", url);
}

void HeadlessDesktop::openFile(const std::string& path, Editor) {
  log("cannot open {}: there is no desktop", path);
}

void HeadlessDesktop::chooseFolder(const FolderRequest&, std::function<void(FolderChoice)> done) {
  done(FolderChoice::unanswered(Error{"There is no desktop to choose a folder on."}));
}

void HeadlessDesktop::Item::setDescription(const std::string& description) {
  current_ = description;
  if (delayedLine_ || current_ == logged_) return;
  const Duration wait = lastLine_ + logInterval - clock_.now();
  if (lastLine_ == Instant{} || wait <= Duration::zero()) return logIfChanged();
  delayedLine_ = mainLoop_.after(clock_, wait, [this] { logIfChanged(); });
}

void HeadlessDesktop::Item::logIfChanged() {
  delayedLine_.cancel();
  if (current_ == logged_) return;
  logged_ = current_;
  lastLine_ = clock_.now();
  logLine(current_);
}

}  // namespace zephyl

#include "Desktop/Model/TrayState.hpp"

#include <utility>

namespace zephyl::sandbox::desktop {
namespace {

constexpr int forbidden = 403;

std::optional<std::string> failureOf(const Result<Answer>& answer) {
  if (!answer) return answer.error().message;
  const auto content = contentOf(*answer);
  return content ? std::nullopt : std::optional(content.error().message);
}

}  // namespace

void TrayState::setAbsent() {
  link_ = Link::absent;
  port_.changed();
}

template <typename T>
void TrayState::pollNext(const Request& request, std::function<void(Result<T>)> next) {
  port_.ask(request, [this, changes = changes_, next = std::move(next)](const auto& answer) {
    if (changes != changes_) {
      poll_.reset();
      return refresh();
    }
    if (!answer) return failPoll(Link::gone);
    if (answer->status == forbidden) return failPoll(Link::replaced);
    next(contentAs<T>(*answer));
  });
}

void TrayState::refresh() {
  if (poll_ || changesUnderWay_ > 0 || link_ == Link::absent) return;
  poll_.emplace();
  pollNext<TrayStatus>(getStatus(), [this](Result<TrayStatus> status) {
    if (!status) return failPoll(Link::gone);
    poll_->status = *std::move(status);
    pollServers();
  });
  pollFolders();
}

void TrayState::pollFolders() {
  if (std::exchange(folders_.isPolled, true)) return;
  port_.ask(getFolders(), [this, changes = changes_](const auto& answer) {
    folders_.isPolled = false;
    if (changesUnderWay_ > 0) return;  // polled after them
    if (changes != changes_) return pollFolders();
    if (!answer) return;
    auto list = contentAs<FolderList>(*answer);
    folders_.known.reset();
    if (list) folders_.known = std::move(list->roots);
    port_.changed();
  });
}

void TrayState::pollServers() {
  pollNext<ServerList>(getServers(), [this](Result<ServerList> servers) {
    if (!servers) return failPoll(Link::gone);
    poll_->servers = *std::move(servers);
    pollDiagnostics();
  });
}

void TrayState::pollDiagnostics() {
  pollNext<Diagnostics>(getDiagnostics(), [this](Result<Diagnostics> diagnostics) {
    if (!diagnostics) return failPoll(Link::gone);
    poll_->diagnostics = *std::move(diagnostics);
    finishPoll();
  });
}

void TrayState::failPoll(Link link) {
  poll_.reset();
  link_ = link;
  port_.changed();
}

void TrayState::finishPoll() {
  state_ = *std::exchange(poll_, std::nullopt);
  link_ = Link::answers;
  port_.polled(!std::exchange(wasConnected_, true));
}

void TrayState::change(const Request& request, Done done) {
  ++changesUnderWay_;
  ++changes_;
  port_.ask(request, [this, done = std::move(done)](const auto& answer) {
    --changesUnderWay_;
    ++changes_;
    if (done) done(failureOf(answer));
    refresh();
  });
}

void TrayState::changeSlowly(const Request& request, Done done) {
  port_.ask(request, [this, done = std::move(done)](const auto& answer) {
    ++changes_;
    done(failureOf(answer));
    refresh();
  });
}

}  // namespace zephyl::sandbox::desktop

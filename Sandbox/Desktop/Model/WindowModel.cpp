#include "Desktop/Model/WindowModel.hpp"

#include <algorithm>
#include <string_view>

namespace zephyl::sandbox::desktop {
namespace {

constexpr int forbidden = 403;

std::optional<std::string> failureOf(const Result<Answer>& answer) {
  if (!answer) return answer.error().message;
  const auto content = contentOf(*answer);
  return content ? std::nullopt : std::optional(content.error().message);
}

/// Returns the part between "servers/" and the suffix; nullopt if the route lacks either.
std::optional<std::string> serverIn(std::string_view route, std::string_view suffix) {
  constexpr std::string_view prefix = "servers/";
  if (!route.starts_with(prefix) || !route.ends_with(suffix)) return std::nullopt;
  if (route.size() <= prefix.size() + suffix.size()) return std::nullopt;
  route.remove_prefix(prefix.size());
  route.remove_suffix(suffix.size());
  return std::string(route);
}

}  // namespace

void WindowModel::setAbsent() {
  link_ = Link::absent;
  port_.changed();
}

// Polls

template <typename T>
void WindowModel::pollNext(const Request& request, std::function<void(Result<T>)> next) {
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

void WindowModel::refresh() {
  if (poll_ || changesUnderWay_ > 0 || link_ == Link::absent) return;
  poll_.emplace();
  pollNext<TrayStatus>(getStatus(), [this](Result<TrayStatus> status) {
    if (!status) return failPoll(Link::gone);
    poll_->status = *std::move(status);
    pollServers();
  });
  pollFolders();
}

void WindowModel::pollFolders() {
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

void WindowModel::pollServers() {
  pollNext<ServerList>(getServers(), [this](Result<ServerList> servers) {
    if (!servers) return failPoll(Link::gone);
    poll_->servers = *std::move(servers);
    pollDiagnostics();
  });
}

void WindowModel::pollDiagnostics() {
  pollNext<Diagnostics>(getDiagnostics(), [this](Result<Diagnostics> diagnostics) {
    if (!diagnostics) return failPoll(Link::gone);
    poll_->diagnostics = *std::move(diagnostics);
    finishPoll();
  });
}

void WindowModel::failPoll(Link link) {
  poll_.reset();
  link_ = link;
  port_.changed();
}

void WindowModel::finishPoll() {
  state_ = *std::exchange(poll_, std::nullopt);
  link_ = Link::answers;
  const bool isFirst = !std::exchange(wasConnected_, true);
  if (isFirst && !focus_) focus_ = page() == Page::join ? Focus::inviteKey : Focus::servers;
  agent_ = agentLine(state_.diagnostics);
  joining_.update(servers());
  if (joining_.step() == Joining::Step::connected) {
    select(joining_.serverId().value_or(""));
    focus_ = Focus::servers;
    joining_.reset();
  }
  resolveRoute();
  port_.changed();
}

// Pages

WindowModel::Page WindowModel::page() const {
  if (joinPageChosen_) return Page::join;
  if (!wasConnected_) return Page::none;
  return servers().empty() ? Page::join : Page::server;
}

const ServerEntry* WindowModel::selected() const {
  if (page() != Page::server) return nullptr;
  const auto found = std::ranges::find(servers(), selected_.value_or(""), &ServerEntry::id);
  return found == servers().end() ? &servers().front() : &*found;
}

void WindowModel::select(const std::string& id) {
  selected_ = id;
  joinPageChosen_ = false;
  notice_.clear();
  port_.changed();
}

void WindowModel::showJoinPage() {
  joinPageChosen_ = true;
  notice_.clear();
  port_.changed();
}

void WindowModel::open(const std::string& route) {
  awaited_.reset();
  if (route == "join") {
    focus_ = Focus::inviteKey;
    return showJoinPage();
  }
  if (const auto renamed = serverIn(route, "/rename")) {
    return focusOn({*renamed, Focus::name});
  }
  if (const auto removed = serverIn(route, "/remove")) {
    return focusOn({*removed, Focus::removal});
  }
  joinPageChosen_ = false;
  focus_ = Focus::servers;
  port_.changed();
}

void WindowModel::focusOn(const ServerRoute& route) {
  const auto found = std::ranges::find(servers(), route.id, &ServerEntry::id);
  if (found == servers().end()) {
    awaited_ = route;
    return;
  }
  focus_ = route.focus;
  select(route.id);
}

void WindowModel::resolveRoute() {
  if (!awaited_) return;
  focusOn(*std::exchange(awaited_, std::nullopt));
  if (!awaited_) return;
  awaited_.reset();
  notice_ = "That server is gone.";
}

// Changes

void WindowModel::change(const Request& request, Done done) {
  ++changesUnderWay_;
  ++changes_;
  port_.ask(request, [this, done = std::move(done)](const auto& answer) {
    --changesUnderWay_;
    ++changes_;
    if (done) done(failureOf(answer));
    refresh();
  });
}

void WindowModel::join(const std::string& inviteKey) {
  if (joining_.isUnderWay()) return;
  joinPageChosen_ = true;
  joining_.begin(servers());
  port_.changed();
  change(joinServer(inviteKey), [this](const std::optional<std::string>& failure) {
    if (failure) {
      joining_.refused(*failure);
    } else {
      joining_.accepted();
    }
    port_.changed();
  });
}

void WindowModel::rename(const std::string& id, const std::string& name, Done done) {
  change(renameServer(id, name), std::move(done));
}

void WindowModel::setAccent(const std::string& id, const std::string& accent, Done done) {
  change(desktop::setAccent(id, accent), std::move(done));
}

void WindowModel::setEnabled(const std::string& id, bool enabled, Done done) {
  change(desktop::setEnabled(id, enabled), std::move(done));
}

void WindowModel::remove(const std::string& id, Done done) {
  change(removeServer(id), std::move(done));
}

void WindowModel::setFolderShared(const std::string& id, const std::string& root, bool shared,
                                  Done done) {
  change(desktop::setFolderShared(id, root, shared), std::move(done));
}

void WindowModel::shareFolder(const std::string& id, Done done) {
  port_.ask(desktop::shareFolder(id), [this, done = std::move(done)](const auto& answer) {
    ++changes_;
    done(failureOf(answer));
    refresh();
  });
}

void WindowModel::restartAgent(Done done) {
  change(desktop::restartAgent(), std::move(done));
}

void WindowModel::copyDiagnostics(std::function<void(const Result<std::string>&)> done) {
  port_.ask(getDiagnostics(), [done = std::move(done)](const Result<Answer>& answer) {
    if (!answer) return done(answer.error());
    const auto content = contentOf(*answer);
    if (!content) return done(content.error());
    done(json::prettySorted(*content));
  });
}

}  // namespace zephyl::sandbox::desktop

#include "Desktop/Model/WindowModel.hpp"

#include <algorithm>
#include <string_view>

namespace zephyl::sandbox::desktop {
namespace {

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

WindowModel::WindowModel(Port port)
    : port_(std::move(port)),
      tray_({.ask = port_.ask,
             .polled = [this](bool isFirst) { handlePoll(isFirst); },
             .changed = port_.changed}) {}

void WindowModel::handlePoll(bool isFirst) {
  if (isFirst && !focus_) focus_ = page() == Page::join ? Focus::inviteKey : Focus::servers;
  agent_ = agentLine(tray_.diagnostics());
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
  if (!wasConnected()) return Page::none;
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

void WindowModel::join(const std::string& inviteKey) {
  if (joining_.isUnderWay()) return;
  joinPageChosen_ = true;
  joining_.begin(servers());
  port_.changed();
  tray_.change(joinServer(inviteKey), [this](const std::optional<std::string>& failure) {
    if (failure) {
      joining_.refused(*failure);
    } else {
      joining_.accepted();
    }
    port_.changed();
  });
}

void WindowModel::rename(const std::string& id, const std::string& name, Done done) {
  tray_.change(renameServer(id, name), std::move(done));
}

void WindowModel::setAccent(const std::string& id, const std::string& accent, Done done) {
  tray_.change(desktop::setAccent(id, accent), std::move(done));
}

void WindowModel::setEnabled(const std::string& id, bool enabled, Done done) {
  tray_.change(desktop::setEnabled(id, enabled), std::move(done));
}

void WindowModel::remove(const std::string& id, Done done) {
  tray_.change(removeServer(id), std::move(done));
}

void WindowModel::setFolderShared(const std::string& id, const std::string& root, bool shared,
                                  Done done) {
  tray_.change(desktop::setFolderShared(id, root, shared), std::move(done));
}

void WindowModel::shareFolder(const std::string& id, Done done) {
  tray_.changeSlowly(desktop::shareFolder(id), std::move(done));
}

void WindowModel::restartAgent(Done done) {
  tray_.change(desktop::restartAgent(), std::move(done));
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

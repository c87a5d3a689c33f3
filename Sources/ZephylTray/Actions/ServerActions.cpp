#include "ZephylTray/Actions/ServerActions.hpp"

#include <algorithm>

#include "System/Concurrency/Weakly.hpp"
#include "System/Data/Format.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/Log.hpp"
#include "ZephylTray/Actions/ServerAlerts.hpp"
#include "ZephylTray/Registry/InviteKey.hpp"

namespace zephyl {

namespace {

constexpr auto serverGone = "That server is gone.";

ServerActions::Failure failureOf(const Result<void>& change) {
  if (change) return std::nullopt;
  return formatText("The change could not be saved, so nothing was changed: {}",
                    change.error().message);
}

}  // namespace

ServerActions::Failure ServerActions::redeem(std::string_view key) {
  auto parsed = InviteKey::parse(key);
  if (!parsed) return parsed.error().errorDescription();
  const auto known = port_.matching(parsed->fingerprint);
  const auto entry = port_.add(known ? known->label : "", known ? known->address : std::nullopt,
                               parsed->fingerprint);
  if (!entry) {
    return formatText("The server could not be saved, so the invite key was not used: {}",
                      entry.error().message);
  }
  beingRemoved_.erase(entry->id);
  port_.setEnrolment(parsed->fingerprint);
  port_.enrol(*entry, std::move(parsed->preauthKey));
  port_.restartAgent();
  onChange();
  return std::nullopt;
}

void ServerActions::promptForInviteKey() {
  if (inviteDialog_) return inviteDialog_->bringToFront();
  inviteDialog_ =
      port_.ask(alerts::inviteKey(),
                weakly(this, [](ServerActions& self, const std::optional<AlertAnswer>& answer) {
                  self.inviteDialog_.reset();
                  self.redeemAnswer(answer);
                }));
}

void ServerActions::redeemAnswer(const std::optional<AlertAnswer>& answer) {
  using Button = alerts::InviteKeyButton;
  if (!answer || static_cast<Button>(answer->button) != Button::join) return;
  const auto failure = redeem(answer->text);
  if (!failure) return;
  inviteDialog_ =
      port_.ask(alerts::inviteKeyFailed(*failure),
                weakly(this, [](ServerActions& self, const auto&) { self.inviteDialog_.reset(); }));
}

ServerActions::Failure ServerActions::setServerLabel(const std::string& id,
                                                     const std::string& label) {
  if (!contains(id)) return serverGone;
  auto failure =
      failureOf(port_.update(id, [&](ServerEntry& entry) { entry.label = trimmed(label); }));
  onChange();
  return failure;
}

ServerActions::Failure ServerActions::setServerAccent(const std::string& id,
                                                      const std::string& accent) {
  if (!contains(id)) return serverGone;
  auto failure = failureOf(port_.update(id, [&](ServerEntry& entry) {
    entry.accent = trimmed(accent);
    if (entry.accent->empty()) entry.accent.reset();
  }));
  onChange();
  return failure;
}

ServerActions::Failure ServerActions::setServerEnabled(const std::string& id, bool enabled) {
  if (!contains(id)) return serverGone;
  auto failure = failureOf(port_.update(id, [&](ServerEntry& entry) { entry.enabled = enabled; }));
  if (!failure) serversChanged();
  return failure;
}

void ServerActions::removeServer(const std::string& id, const Completion& done) {
  if (!contains(id)) return done(serverGone);
  beingRemoved_.insert(id);
  port_.suspendTailnet(id);
  port_.whenTailnetsEnded(
      weakly(this, [id, done](ServerActions& self) { done(self.removeStoppedServer(id)); }));
}

/// Runs after the children of the tailnet have ended, because they use the files that are deleted.
ServerActions::Failure ServerActions::removeStoppedServer(const std::string& id) {
  const bool isWanted = beingRemoved_.erase(id) > 0;
  if (!isWanted || !contains(id)) {
    port_.resumeTailnet(id);
    return contains(id) ? "The server was joined again meanwhile, so it was not removed."
                        : serverGone;
  }
  auto failure = failureOf(port_.remove(id));
  port_.resumeTailnet(id);
  if (failure) {
    port_.syncTailnets();  // starts the server's tailnet again
    return failure;
  }
  if (std::ranges::none_of(port_.all(), &ServerEntry::isJoined)) port_.setEnrolment(std::nullopt);
  serversChanged();
  return std::nullopt;
}

void ServerActions::complete(Failure failure, const Completion& done) const {
  if (failure) return done(std::move(failure));
  port_.whenTailnetsEnded([done] { done(std::nullopt); });
}

void ServerActions::connectServer(const std::string& id) {
  if (!contains(id)) return;
  const auto failure = setServerEnabled(id, true);
  if (!failure) return;
  log("server {}: could not connect: {}", id, *failure);
  connectFailureDialog_ = port_.ask(
      alerts::connectFailed(*failure),
      weakly(this, [](ServerActions& self, const auto&) { self.connectFailureDialog_.reset(); }));
}

bool ServerActions::contains(const std::string& id) const {
  const auto servers = port_.all();
  return std::ranges::find(servers, id, &ServerEntry::id) != servers.end();
}

void ServerActions::serversChanged() {
  port_.syncTailnets();
  port_.restartAgent();
  onChange();
}

}  // namespace zephyl

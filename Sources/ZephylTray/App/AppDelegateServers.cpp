#include <algorithm>

#include "System/Data/Format.hpp"
#include "System/Data/Secret.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/UserDefaults.hpp"
#include "ZephylTray/App/AppDelegate.hpp"
#include "ZephylTray/Config/Config.hpp"
#include "ZephylTray/Registry/InviteKey.hpp"
#include "ZephylTray/Registry/Servers.hpp"

namespace zephyl {

namespace {

constexpr auto serverGone = "That server is gone.";

/// What to tell the user about a change of a server; nothing when it was saved.
std::optional<std::string> failureOf(const Result<void>& change) {
  if (change) return std::nullopt;
  return formatText("The change could not be saved, so nothing was changed: {}",
                    change.error().message);
}

}  // namespace

std::optional<std::string> AppDelegate::redeem(const std::string& key) {
  auto parsed = InviteKey::parse(key);
  if (!parsed) return parsed.error().errorDescription();
  const auto known = Servers::matching(parsed->fingerprint);
  const auto entry = Servers::add(known ? known->label : "", known ? known->address : std::nullopt,
                                  parsed->fingerprint);
  if (!entry) {
    wipe(parsed->preauthKey);
    return formatText("The server could not be saved, so the invite key was not used: {}",
                      entry.error().message);
  }
  Config::defaults().setString("tailnetFingerprint", parsed->fingerprint);
  tailnet_->retire(entry->id);
  tailnet_->instance(*entry)->startRedeeming(parsed->preauthKey);
  wipe(parsed->preauthKey);
  agent_->restart();
  rebuildMenu();
  return std::nullopt;
}

std::optional<std::string> AppDelegate::setServerLabel(const std::string& id,
                                                       const std::string& label) {
  if (!Servers::contains(id)) return serverGone;
  auto failure =
      failureOf(Servers::update(id, [&](ServerEntry& entry) { entry.label = trimmed(label); }));
  rebuildMenu();
  return failure;
}

/// An empty accent gives the choice back to the server.
std::optional<std::string> AppDelegate::setServerAccent(const std::string& id,
                                                        const std::string& accent) {
  if (!Servers::contains(id)) return serverGone;
  auto failure = failureOf(Servers::update(id, [&](ServerEntry& entry) {
    entry.accent = trimmed(accent);
    if (entry.accent->empty()) entry.accent.reset();
  }));
  rebuildMenu();
  return failure;
}

std::optional<std::string> AppDelegate::setServerEnabled(const std::string& id, bool enabled) {
  if (!Servers::contains(id)) return serverGone;
  auto failure =
      failureOf(Servers::update(id, [&](ServerEntry& entry) { entry.enabled = enabled; }));
  if (!failure) serversChanged();
  return failure;
}

void AppDelegate::removeServer(const std::string& id, const ControlServer::Completion& done) {
  if (!Servers::contains(id)) return done(serverGone);
  tailnet_->suspend(id);
  tailnet_->whenRetired(
      weakly([id, done](AppDelegate& self) { done(self.removeStoppedServer(id)); }));
}

/// What the children of a tailnet have in use must not be deleted before they have ended.
std::optional<std::string> AppDelegate::removeStoppedServer(const std::string& id) {
  auto failure = failureOf(Servers::remove(id));
  tailnet_->resume(id);
  if (failure) {
    tailnet_->syncWithStore();  // starts its tailnet again
    return failure;
  }
  const auto left = Servers::all();
  const bool anyJoined = std::ranges::any_of(left, &ServerEntry::isJoined);
  if (!anyJoined) Config::defaults().remove("tailnetFingerprint");
  serversChanged();
  return std::nullopt;
}

void AppDelegate::serversChanged() {
  tailnet_->syncWithStore();
  agent_->restart();
  rebuildMenu();
}

}  // namespace zephyl

#include "System/Secret.hpp"
#include "System/UserDefaults.hpp"
#include "ZephylTray/AppDelegate.hpp"
#include "ZephylTray/Config.hpp"
#include "ZephylTray/InviteKey.hpp"
#include "ZephylTray/Servers.hpp"

namespace zephyl {

std::optional<std::string> AppDelegate::redeem(const std::string& key) {
  auto parsed = InviteKey::parse(key);
  if (!parsed) return parsed.error().errorDescription();
  const auto known = Servers::matching(parsed->fingerprint);
  const auto entry = Servers::add(known ? known->label : "", known ? known->address : std::nullopt,
                                  parsed->fingerprint);
  Config::defaults().setString("tailnetFingerprint", parsed->fingerprint);
  if (const auto old = tailnet_->forget(entry.id)) old->stop();
  tailnet_->instance(entry)->startRedeeming(parsed->preauthKey);
  wipe(parsed->preauthKey);
  agent_->restart();
  refresh();
  return std::nullopt;
}

}  // namespace zephyl

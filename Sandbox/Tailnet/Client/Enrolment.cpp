#include "Tailnet/Client/Enrolment.hpp"

#include <boost/json.hpp>

#include "Tailnet/Common/StateFile.hpp"

namespace zephyl::sandbox {
namespace {

bool isRemembered(const StateFile& file, const std::string& fingerprint) {
  const auto enrolment = file.load();
  if (!enrolment) return false;
  const auto* remembered = enrolment->if_contains("fingerprint");
  return remembered && remembered->is_string() && remembered->get_string() == fingerprint;
}

}  // namespace

Result<void> enrol(const std::string& stateDirectory, const std::string& fingerprint,
                   const PreauthKey& key) {
  const StateFile file(stateDirectory, "enrolment.json");
  if (isRemembered(file, fingerprint)) return {};
  if (!key.isGiven()) return Failure{"no invite key has been redeemed on this machine"};
  if (key.contains("expired")) return Failure{"key expired"};
  if (key.contains("used")) return Failure{"key already used"};
  return file.save({{"fingerprint", fingerprint}});
}

}  // namespace zephyl::sandbox

#include "Tailnet/Client/Enrolment.hpp"

#include <boost/describe/class.hpp>

#include "Common/TakenVariable.hpp"
#include "System/Data/JSON.hpp"
#include "System/Data/Secret.hpp"

namespace zephyl::sandbox {
namespace {

struct Enrolment {
  std::string fingerprint;
};
BOOST_DESCRIBE_STRUCT(Enrolment, (), (fingerprint))

}  // namespace

PreauthKey::PreauthKey() : text_(takeVariable("ZEPHYL_PREAUTH_KEY")) {}

void PreauthKey::forget() {
  wipe(text_);
}

Result<void> enrol(const StateFile& file, const std::string& fingerprint, const PreauthKey& key) {
  const auto enrolment = file.load<Enrolment>();
  if (enrolment && enrolment->fingerprint == fingerprint) return {};
  if (!key.isGiven()) return Error{"no invite key has been redeemed on this machine"};
  if (key.contains("expired")) return Error{"key expired"};
  if (key.contains("used")) return Error{"key already used"};
  return file.save(json::encode(Enrolment{.fingerprint = fingerprint}));
}

}  // namespace zephyl::sandbox

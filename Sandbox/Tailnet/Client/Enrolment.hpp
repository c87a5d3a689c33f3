#pragma once

#include <string>

#include "Common/Result.hpp"
#include "Tailnet/Client/PreauthKey.hpp"

namespace zephyl::sandbox {

/// Enrols with the key, unless `enrolment.json` in the state directory remembers an enrolment in
/// this very tailnet. The file holds the fingerprint, nothing of the key. A failure is the reason,
/// in the words of a coordination server.
Result<void> enrol(const std::string& stateDirectory, const std::string& fingerprint,
                   const PreauthKey& key);

}  // namespace zephyl::sandbox

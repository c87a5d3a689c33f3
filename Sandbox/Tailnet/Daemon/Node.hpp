#pragma once

#include <string>

#include "Common/Result.hpp"

namespace zephyl::sandbox {

/// The identity of the node in this state directory: random at the first start, kept in
/// `node.json`, the same ever after. The directory is made where it is missing.
Result<std::string> nodeIn(const std::string& stateDirectory);

}  // namespace zephyl::sandbox

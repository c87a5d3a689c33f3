#include "System/Secret.hpp"

#include <cstring>

namespace zephyl {

void wipe(std::string& secret) {
  ::explicit_bzero(secret.data(), secret.size());
  secret.clear();
}

void wipe(Environment& environment) {
  for (auto& [name, value] : environment) wipe(value);
}

}  // namespace zephyl

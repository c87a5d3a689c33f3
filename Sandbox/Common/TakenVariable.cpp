#include "Common/TakenVariable.hpp"

#include <cstdlib>
#include <cstring>

namespace zephyl::sandbox {

std::string takeVariable(const char* name) {
  char* value = std::getenv(name);
  if (!value) return {};
  std::string secret = value;
  ::explicit_bzero(value, secret.size());
  ::unsetenv(name);
  return secret;
}

}  // namespace zephyl::sandbox

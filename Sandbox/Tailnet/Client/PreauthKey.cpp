#include "Tailnet/Client/PreauthKey.hpp"

#include <cstdlib>
#include <cstring>

namespace zephyl::sandbox {
namespace {

constexpr auto variable = "ZEPHYL_PREAUTH_KEY";

}  // namespace

PreauthKey::PreauthKey() {
  char* value = std::getenv(variable);
  if (!value) return;
  text_ = value;
  // Unsetting alone would leave the text in the memory that /proc shows as the environment.
  ::explicit_bzero(value, text_.size());
  ::unsetenv(variable);
}

void PreauthKey::forget() {
  ::explicit_bzero(text_.data(), text_.size());
  text_.clear();
}

}  // namespace zephyl::sandbox

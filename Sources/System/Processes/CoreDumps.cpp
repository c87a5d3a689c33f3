#include "System/Processes/CoreDumps.hpp"

#include <sys/resource.h>

namespace zephyl::coreDumps {

namespace {

struct rlimit original {};
bool isDisabled = false;

}  // namespace

void disable() {
  if (::getrlimit(RLIMIT_CORE, &original) != 0) return;
  const struct rlimit none {
    .rlim_cur = 0, .rlim_max = original.rlim_max
  };
  isDisabled = ::setrlimit(RLIMIT_CORE, &none) == 0;
}

void restore() {
  if (isDisabled) ::setrlimit(RLIMIT_CORE, &original);
}

}  // namespace zephyl::coreDumps

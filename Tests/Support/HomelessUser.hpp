#pragma once

#include <functional>
#include <optional>

#include <pwd.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Support/TemporaryDirectory.hpp"

namespace zephyl::test {

/// Evaluates `condition`, in a child process, as a user without a home directory in the environment
/// and in the password database. Returns nullopt if this user may not change its id.
inline std::optional<bool> holdsWithoutHome(const std::function<bool()>& condition) {
  constexpr uid_t nobodyKnown = 54321;
  if (::geteuid() != 0 || ::getpwuid(nobodyKnown) != nullptr) return std::nullopt;
  const pid_t child = ::fork();
  if (child == 0) {
    const ScopedVariable home("HOME"), data("XDG_DATA_HOME"), configuration("XDG_CONFIG_HOME");
    ::_exit(::setuid(nobodyKnown) == 0 && condition() ? 0 : 1);
  }
  int status = -1;
  return ::waitpid(child, &status, 0) == child && status == 0;
}

}  // namespace zephyl::test

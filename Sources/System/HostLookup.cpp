#include "System/HostLookup.hpp"

#include <utility>

#include "System/ChildProcess.hpp"
#include "System/Log.hpp"

namespace zephyl {

namespace {
constexpr auto resolverProgram = "/usr/bin/getent";
}

void lookUpHost(ProcessLauncher& launcher, const std::string& host,
                const std::function<void(bool resolves)>& done) {
  const auto child = launcher.launch({
      .executable = resolverProgram,
      .arguments = {"ahosts", host},
      .environment = currentEnvironment(),
      .onOutput = [](const OutputLines&) {},
      .onExit = [done](ExitStatus status) { done(status == ExitStatus{}); },
  });
  if (child) return;
  log("could not look up {}: {}", host, child.error().message);
  done(false);
}

}  // namespace zephyl

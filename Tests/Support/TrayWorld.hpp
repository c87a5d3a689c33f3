#pragma once

#include <string>

#include "Support/TemporaryDirectory.hpp"

namespace zephyl::test {

/// A private home, settings and source tree for components, so that they do not access the user's
/// own. The source tree has no agent until one is added.
class TrayWorld {
 public:
  TrayWorld() { directory_.write("source/pnpm-workspace.yaml", ""); }

  [[nodiscard]] const TemporaryDirectory& directory() const { return directory_; }
  [[nodiscard]] std::string source() const { return directory_ / "source"; }
  [[nodiscard]] std::string baseDirectory() const { return directory_ / "data/Zephyl"; }

  /// Adds an executable to the source tree and returns its path.
  std::string addProgram(const std::string& name, const std::string& script = "#!/bin/sh\n") const {
    return directory_.write("source/" + name, script, true);
  }
  std::string addAgent(const std::string& script = "#!/bin/sh\n") const {
    return addProgram("target/release/zephyl-agent", script);
  }

 private:
  TemporaryDirectory directory_;
  ScopedVariable home_{"HOME", directory_ / "home"};
  ScopedVariable data_{"XDG_DATA_HOME", directory_ / "data"};
  ScopedVariable configuration_{"XDG_CONFIG_HOME", directory_ / "config"};
  ScopedVariable repoRoot_{"ZEPHYL_REPO_ROOT", source()};
};

}  // namespace zephyl::test

#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Support/ManualClock.hpp"
#include "Support/TrayWorld.hpp"
#include "System/Concurrency/ThreadPool.hpp"
#include "System/Files/Files.hpp"
#include "ZephylTray/Registry/Servers.hpp"

namespace zephyl::test {

/// An open registry in a private world.
class ServersFixture : public ::testing::Test {
 protected:
  [[nodiscard]] std::string path() const { return world_.baseDirectory() + "/servers.json"; }
  [[nodiscard]] std::string contents() const { return *readFile(path()); }
  void write(const std::string& text) const {
    world_.directory().write("data/Zephyl/servers.json", text);
  }
  /// Closes the registry and opens it again, like the next start of the program.
  void reopen() {
    store_.reset();
    store_.emplace(pool_, clock_);
  }

  static std::vector<std::string> labels() {
    std::vector<std::string> labels;
    for (const auto& entry : Servers::all()) labels.push_back(entry.label);
    return labels;
  }
  [[nodiscard]] std::vector<std::string> copies() const {
    std::vector<std::string> paths;
    for (const auto& entry : std::filesystem::directory_iterator(world_.baseDirectory())) {
      const std::string name = entry.path().filename();
      if (name.starts_with("servers.json.unreadable-")) paths.push_back(entry.path());
    }
    return paths;
  }

  static ServerEntry entry(std::string id, std::string label = "") {
    return {.id = std::move(id), .label = std::move(label), .ordinal = 1, .agentId = "agent"};
  }

  TrayWorld world_;
  ThreadPool pool_;
  ManualClock clock_;
  std::optional<Servers::Store> store_{std::in_place, pool_, clock_};
};

}  // namespace zephyl::test

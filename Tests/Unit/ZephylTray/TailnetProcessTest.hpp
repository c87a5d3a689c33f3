#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Support/TestRuntime.hpp"
#include "Support/TrayWorld.hpp"
#include "ZephylTray/Registry/Servers.hpp"
#include "ZephylTray/Tailnet/TailnetProcess.hpp"

namespace zephyl {

constexpr auto joinedServerId = "0123456789ab-4000-8000-000000000000";

inline ServerEntry joinedServer() {
  return {
      .id = joinedServerId,
      .label = "Lab",
      .tailnetFingerprint = std::string(32, 'a'),
      .agentId = "agent",
      .ports = {.socks = 1055, .shim = 8800, .tunnelHost = "127.100.0.3", .tunnelFallback = 8085},
      .enabled = true};
}

/// The tailnet of a joined server, with fake children.
class TailnetProcessTest : public ::testing::Test {
 protected:
  TailnetProcessTest() {
    daemon_ = world_.addProgram("packages/tailnet-client/tailscaled");
    client_ = world_.addProgram("packages/tailnet-client/zephyl-tailnet");
    use(joinedServer());
  }

  void use(const ServerEntry& server) {
    Servers::replaceAll({server});
    tailnet_ = std::make_shared<TailnetProcess>(runtime_.runtime(), server);
    tailnet_->onStateChange = [this] { ++stateChanges_; };
    tailnet_->onAddressLearned = [this] { ++addressesLearned_; };
    tailnet_->onTargetUnresolved = [this](std::string target) {
      targets_.push_back(std::move(target));
    };
  }

  void settle() { runtime_.settle(); }

  void advance(Duration step) { runtime_.advance(step); }

  void startBoth() {
    tailnet_->start();
    advance(TailnetProcess::clientDelay);
    ASSERT_TRUE(tailnet_->isRunning());
  }

  void print(const std::string& line) {
    client().print({line});
    settle();
  }

  test::FakeChild& child(std::size_t index) { return *runtime_.launcher.children().at(index); }
  test::FakeChild& client() { return *runtime_.launcher.newest(); }
  std::size_t launches() { return runtime_.launcher.children().size(); }
  std::string lastLine() { return tailnet_->recentLog().back(); }

  test::TrayWorld world_;
  test::TestRuntime runtime_;
  std::string daemon_;
  std::string client_;
  std::shared_ptr<TailnetProcess> tailnet_;
  int stateChanges_ = 0;
  int addressesLearned_ = 0;
  std::vector<std::string> targets_;
};

}  // namespace zephyl

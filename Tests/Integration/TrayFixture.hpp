#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Support/FakeAgent.hpp"
#include "Support/FakeDesktop.hpp"
#include "Support/FakeDialogs.hpp"
#include "Support/RawClient.hpp"
#include "Support/TestRuntime.hpp"
#include "Support/TrayWorld.hpp"
#include "System/Data/JSON.hpp"
#include "System/Files/Bundle.hpp"
#include "ZephylTray/App/AppDelegate.hpp"

namespace zephyl::test {

/// A whole tray with a real registry, a real control API and an agent on a socket, but with a fake
/// desktop and fake children. The desktop app is installed, so that the tray starts it and passes
/// it the token of the control API. The agent answers nothing until the test sets its answers.
class TrayFixture : public ::testing::Test {
 protected:
  TrayFixture() { world_.addProgram("packages/desktop/src-tauri/target/release/zephyl-desktop"); }
  ~TrayFixture() override {
    if (delegate_) delegate_->applicationWillTerminate();
    Bundle::setMain(Bundle(std::nullopt));
  }
  TrayFixture(const TrayFixture&) = delete;
  TrayFixture& operator=(const TrayFixture&) = delete;

  void addTailnetPrograms() {
    world_.addProgram("packages/tailnet-client/tailscaled");
    world_.addProgram("packages/tailnet-client/zephyl-tailnet");
  }
  /// Gives the running program a bundle identifier.
  void becomeBundle() {
    world_.directory().write("prefix/share/zephyl-tray/Info.json",
                             R"({"CFBundleIdentifier":"com.zephyl.tray"})");
    Bundle::setMain(Bundle(world_.directory().write("prefix/bin/zephyl-tray", "", true)));
  }

  void launch() {
    delegate_ = std::make_shared<AppDelegate>(runtime_.runtime(), desktop_, dialogs_, nullptr,
                                              commandSetup_);
    delegate_->applicationDidFinishLaunching();
  }
  /// Launches the tray with a reachable agent, and waits until the tray has polled it.
  void launchBesideAgent() {
    agent_.answerHealthily();
    launch();
    ASSERT_TRUE(runtime_.runUntil([&] { return delegate_->agentSnapshot().reachable; }));
    ASSERT_TRUE(runtime_.runUntil([&] { return agent_.openStreams() == 1; }));
  }

  void choose(TrayAction action) {
    desktop_.item.events.chosen(MenuAction(TrayAction(std::move(action))));
  }

  /// Returns the running child whose program ends in `name`; null if there is none.
  std::shared_ptr<FakeChild> child(const std::string& name) {
    const auto children = runtime_.launcher.children();
    const auto found = std::ranges::find_if(children, [&](const auto& each) {
      return each->isRunning() && each->options().executable.ends_with(name);
    });
    return found == children.end() ? nullptr : *found;
  }
  /// Return the numbers of launched and of running children whose program ends in `name`.
  std::size_t launched(const std::string& name) {
    return count([&](const auto& each) { return each.options().executable.ends_with(name); });
  }
  std::size_t running(const std::string& name) {
    return count([&](const auto& each) {
      return each.isRunning() && each.options().executable.ends_with(name);
    });
  }

  /// Sends a request to the control API like the desktop app.
  void send(const RawClient& client, const std::string& line, const std::string& body) {
    client.send(line + " HTTP/1.1\r\nX-Zephyl-Onboard-Token: " + token() +
                "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
  }
  json::Value receive(const RawClient& client) {
    EXPECT_TRUE(runtime_.runUntil([&] { return client.isReadable(std::chrono::milliseconds(1)); }));
    const auto answer = client.receiveAll();
    status_ = answer.substr(9, 3);
    return *json::parse(answer.substr(answer.find("\r\n\r\n") + 4));
  }
  json::Value ask(const std::string& line, const std::string& body = "") {
    const RawClient client(controlPort_);
    send(client, line, body);
    return receive(client);
  }
  json::Value invite(const std::string& key) {
    return ask("POST /invite", json::compact(json::Object{{"key", key}}));
  }
  std::string token() {
    if (token_.empty()) {
      token_ = child("zephyl-desktop")->options().environment.at("ZEPHYL_ONBOARD_TOKEN");
    }
    return token_;
  }
  static json::Value error(const std::string& message) { return json::Object{{"error", message}}; }

  /// Joins a server, waits until its tailnet is running, and returns the server's id.
  std::string joinServer(const std::string& address = "100.64.0.7:80") {
    EXPECT_EQ(invite("inv_v2_" + std::string(32, 'a') + "_one"), ok_);
    runtime_.advance(std::chrono::seconds(2));
    child("zephyl-tailnet")->print({"data tunnel on http://" + address});
    runtime_.settle();
    return Servers::all()[0].id;
  }

  const json::Value ok_ = json::Object{{"ok", true}};
  const int controlPort_ = freePort();
  TrayWorld world_;
  FakeAgent agent_;
  ScopedVariable agentPortVariable_{"AGENT_TRAY_PORT", std::to_string(agent_.port())};
  ScopedVariable controlPortVariable_{"ZEPHYL_ONBOARD_PORT", std::to_string(controlPort_)};
  ScopedVariable temporary_{"TMPDIR", world_.directory().path()};
  TestRuntime runtime_;
  FakeDesktop desktop_;
  FakeDialogs dialogs_;
  CommandSetup commandSetup_;  // serves no commands by default
  std::shared_ptr<AppDelegate> delegate_;
  std::string status_;  // status line of the last answer of the control API

 private:
  template <typename Condition>
  std::size_t count(Condition condition) {
    return static_cast<std::size_t>(std::ranges::count_if(
        runtime_.launcher.children(), [&](const auto& each) { return condition(*each); }));
  }

  std::string token_;
};

}  // namespace zephyl::test

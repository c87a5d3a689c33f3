#pragma once

#include <chrono>
#include <csignal>
#include <memory>
#include <stdexcept>

#include <gtest/gtest.h>

#include "Support/Children.hpp"
#include "System/Concurrency/Reactor.hpp"
#include "System/Processes/ChildProcess.hpp"
#include "System/Processes/Guardian.hpp"
#include "System/Processes/SystemProcessLauncher.hpp"

namespace zephyl {

using Child = std::shared_ptr<ChildProcess>;

constexpr auto deadline = std::chrono::seconds(20);

/// A real launcher with real children.
class ChildProcessTest : public ::testing::Test {
 protected:
  /// Starts a child. Fails the test if that fails.
  Child launch(ProcessOptions options) {
    auto child = launcher_.launch(std::move(options));
    if (!child) throw std::runtime_error(child.error().message);
    return *child;
  }

  Child launchWatched(ProcessOptions options) {
    witness_.attachTo(options);
    return launch(std::move(options));
  }

  /// Waits until the reactor has finished with ended children. Waits twice, because tasks of other
  /// threads may precede the tasks of a handler.
  void settle() {
    reactor_.run([] {});
    reactor_.run([] {});
  }

  ChildProcessTest() { std::signal(SIGPIPE, SIG_IGN); }

  Guardian guardian_ = *Guardian::start();
  test::ChildWitness witness_;
  Reactor reactor_;
  SystemProcessLauncher launcher_{reactor_, guardian_};
};

}  // namespace zephyl

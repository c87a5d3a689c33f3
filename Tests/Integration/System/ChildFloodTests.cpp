#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "ChildProcessTest.hpp"
#include "Support/Eventually.hpp"

namespace zephyl {
namespace {

using test::eventually;
using test::program;
using test::script;

TEST_F(ChildProcessTest, DeliversAFloodCompletely) {
  std::atomic<std::size_t> lines = 0;
  std::atomic<bool> ended = false;
  ProcessOptions options = script("head -c 5000000 /dev/zero | tr '\\0' x | fold -w 100");
  options.onOutput = [&](const OutputLines& batch) { lines += batch.lines().size(); };
  options.onExit = [&](ExitStatus) { ended = true; };
  const Child child = launch(std::move(options));
  EXPECT_TRUE(child->waitForExit(deadline));
  EXPECT_TRUE(eventually([&] { return ended.load(); }));
  EXPECT_EQ(lines, 50000U);
}

/// The bytes of unprocessed output beyond which a child is not read.
constexpr std::size_t allowance = 256UL * 1024;

/// Keeps the received batches.
class Hoarder {
 public:
  void attachTo(ProcessOptions& options) {
    options.onOutput = [this](OutputLines batch) {
      const std::scoped_lock lock(mutex_);
      for (const auto& line : batch.lines()) bytes_ += line.size() + sizeof(std::string);
      batches_.push_back(std::move(batch));
    };
  }

  std::size_t bytes() {
    const std::scoped_lock lock(mutex_);
    return bytes_;
  }

  void letGo() {
    std::vector<OutputLines> batches;
    const std::scoped_lock lock(mutex_);
    batches.swap(batches_);
    bytes_ = 0;
  }

 private:
  std::mutex mutex_;
  std::vector<OutputLines> batches_;
  std::size_t bytes_ = 0;
};

TEST_F(ChildProcessTest, ItsPipeIsNotReadWhileEarlierOutputIsUnread) {
  for (const std::string line : {"y", "a line of an ordinary length, as programs write them"}) {
    Hoarder hoarder;
    ProcessOptions options = program("/usr/bin/yes", {line});
    hoarder.attachTo(options);
    const Child child = launch(std::move(options));
    for (int round = 0; round < 3; ++round) {
      EXPECT_TRUE(eventually([&] { return hoarder.bytes() >= allowance; }));
      const std::size_t held = hoarder.bytes();
      for (int turn = 0; turn < 1000; ++turn) reactor_.run([] {});
      EXPECT_EQ(hoarder.bytes(), held);
      EXPECT_LT(held, 3 * allowance);
      hoarder.letGo();
    }
    EXPECT_TRUE(eventually([&] { return hoarder.bytes() > 0; }));
    child->killGroup();
    EXPECT_TRUE(child->waitForExit(deadline));
    settle();
  }
}

TEST_F(ChildProcessTest, EndsEvenIfItsOutputIsUnread) {
  std::atomic<bool> ended = false;
  Hoarder hoarder;
  ProcessOptions options =
      script("head -c 400000 /dev/zero | tr '\\0' '\\n' | sed s/^/x/; echo done");
  hoarder.attachTo(options);
  options.onExit = [&](ExitStatus) { ended = true; };
  const Child child = launch(std::move(options));
  EXPECT_TRUE(eventually([&] { return hoarder.bytes() >= allowance; }));
  child->terminateGroup();
  EXPECT_TRUE(eventually([&] { return ended.load(); }));
}

}  // namespace
}  // namespace zephyl

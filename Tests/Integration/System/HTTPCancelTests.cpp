#include <algorithm>
#include <array>
#include <atomic>
#include <future>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "HTTPRecorders.hpp"
#include "ScriptedServer.hpp"
#include "Support/Eventually.hpp"
#include "System/Concurrency/Reactor.hpp"
#include "System/Network/HTTPSession.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;
using test::AnswerRecorder;
using test::eventually;
using test::ScriptedPeer;
using test::ScriptedServer;
using test::StreamRecorder;

constexpr auto endlessHead = "HTTP/1.1 200 OK\r\n\r\n";

ClientRequest endless(const ScriptedServer& server) {
  return {.url = server.url(), .timeout = 0s};
}

void answer(const ScriptedPeer& peer) {
  (void)peer.receiveRequest();
  peer.send("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok");
}

void tick(const ScriptedPeer& peer) {
  (void)peer.receiveRequest();
  peer.send(endlessHead);
  for (int i = 0; i < 20; ++i) peer.send("tick\ntick\n");
  peer.waitUntilLeft();
}

void stall(const ScriptedPeer& peer) {
  (void)peer.receiveRequest();
  peer.waitUntilLeft();
}

class HTTPCancelTest : public testing::Test {
 protected:
  /// Waits until the reactor has finished its present task.
  void settle() {
    reactor_.run([] {});
  }

  Reactor reactor_;
  HTTPSession session_{reactor_, {}};
};

TEST_F(HTTPCancelTest, ClosesTheConnectionWithoutACallback) {
  std::atomic<bool> left = false;
  const ScriptedServer server([&](const ScriptedPeer& peer) {
    stall(peer);
    left = true;
  });
  const AnswerRecorder recorder;
  auto task = session_.send(endless(server), recorder.done());
  ASSERT_TRUE(eventually([&] { return !server.clientDescriptors().empty(); }));
  EXPECT_TRUE(task);
  task.cancel();
  EXPECT_FALSE(task);
  EXPECT_TRUE(eventually([&] { return left.load(); }));
  settle();
  EXPECT_EQ(recorder.count(), 0);
}

TEST_F(HTTPCancelTest, HappensWhenTheHandleIsDestroyed) {
  const ScriptedServer server(stall, 3);
  const StreamRecorder recorder;
  auto replaced = session_.stream(endless(server), recorder.handlers());
  {
    auto other = session_.stream(endless(server), recorder.handlers());
    const auto destroyed = session_.stream(endless(server), recorder.handlers());
    ASSERT_TRUE(eventually([&] { return server.clientDescriptors().size() == 3; }));
    replaced = std::move(other);
    ASSERT_TRUE(eventually([&] { return server.clientDescriptors().size() == 2; }));
  }
  EXPECT_TRUE(eventually([&] { return server.clientDescriptors().size() == 1; }));
  replaced = HTTPTask();
  EXPECT_TRUE(eventually([&] { return server.clientDescriptors().empty(); }));
  settle();
  EXPECT_TRUE(recorder.now().ends.empty());
}

TEST_F(HTTPCancelTest, MovesWithTheHandle) {
  const ScriptedServer server(answer);
  const AnswerRecorder recorder;
  auto task = session_.send(endless(server), recorder.done());
  const auto moved = std::move(task);
  EXPECT_TRUE(recorder.wait());
}

TEST_F(HTTPCancelTest, DoesNotHappenWhenTheHandleIsDetached) {
  const ScriptedServer server(answer);
  const AnswerRecorder recorder;
  session_.send(endless(server), recorder.done()).detach();
  EXPECT_TRUE(recorder.wait());
}

TEST_F(HTTPCancelTest, IsFineAfterTheEnd) {
  const ScriptedServer server(answer);
  const AnswerRecorder recorder;
  auto task = session_.send(endless(server), recorder.done());
  EXPECT_TRUE(recorder.wait());
  task.cancel();
  settle();
  EXPECT_EQ(recorder.count(), 1);
}

TEST_F(HTTPCancelTest, FromWithinACallbackEndsTheLines) {
  const ScriptedServer server([](const ScriptedPeer& peer) {
    (void)peer.receiveRequest();
    peer.send(endlessHead + std::string("one\ntwo\nthree\n"));
  });
  HTTPTask task;
  std::atomic<int> lines = 0;
  std::atomic<int> ends = 0;
  reactor_.run([&] {
    task = session_.stream(endless(server), {.onStatus = [](int) { return true; },
                                             .onLine =
                                                 [&](std::string_view) {
                                                   if (++lines == 2) task.cancel();
                                                 },
                                             .onEnd = [&](const auto&) { ++ends; }});
  });
  ASSERT_TRUE(eventually([&] { return lines == 2; }));
  EXPECT_TRUE(eventually([&] { return server.clientDescriptors().empty(); }));
  settle();
  EXPECT_EQ(lines, 2);
  EXPECT_EQ(ends, 0);
}

TEST_F(HTTPCancelTest, FromWithinTheStatusCallbackEndsEverything) {
  const ScriptedServer server(tick);
  HTTPTask task;
  std::atomic<int> statuses = 0;
  std::atomic<int> others = 0;
  reactor_.run([&] {
    task = session_.stream(endless(server), {.onStatus =
                                                 [&](int) {
                                                   task.cancel();
                                                   ++statuses;
                                                   return statuses > 1;
                                                 },
                                             .onLine = [&](std::string_view) { ++others; },
                                             .onEnd = [&](const auto&) { ++others; }});
  });
  ASSERT_TRUE(eventually([&] { return statuses == 1; }));
  EXPECT_TRUE(eventually([&] { return server.clientDescriptors().empty(); }));
  settle();
  EXPECT_EQ(others, 0);
}

TEST_F(HTTPCancelTest, FromWithinTheUnterminatedLineSuppressesTheEnd) {
  const ScriptedServer server([](const ScriptedPeer& peer) {
    (void)peer.receiveRequest();
    peer.send(endlessHead + std::string("last"));
  });
  HTTPTask task;
  std::atomic<int> lines = 0;
  std::atomic<int> ends = 0;
  reactor_.run([&] {
    task = session_.stream(endless(server), {.onStatus = [](int) { return true; },
                                             .onLine =
                                                 [&](std::string_view) {
                                                   task.cancel();
                                                   ++lines;
                                                 },
                                             .onEnd = [&](const auto&) { ++ends; }});
  });
  ASSERT_TRUE(eventually([&] { return lines == 1; }));
  settle();
  EXPECT_EQ(ends, 0);
}

TEST_F(HTTPCancelTest, SuppressesAnAnswerThatHasArrived) {
  std::promise<void> go;
  const auto turn = go.get_future().share();
  std::atomic<int> asked = 0;
  const ScriptedServer server(
      [&](const ScriptedPeer& peer) {
        (void)peer.receiveRequest();
        ++asked;
        turn.wait();
        peer.send(endlessHead + std::string("line\n"));
      },
      2);
  std::array<HTTPTask, 2> tasks;
  std::atomic<int> calls = 0;
  for (std::size_t i = 0; i < 2; ++i) {
    const auto cancelOther = [&, i] {
      tasks[1 - i].cancel();
      ++calls;
    };
    tasks[i] = session_.stream(endless(server), {.onStatus =
                                                     [=](int) {
                                                       cancelOther();
                                                       return true;
                                                     },
                                                 .onLine = [](std::string_view) {},
                                                 .onEnd = [](const auto&) {}});
  }
  ASSERT_TRUE(eventually([&] { return asked == 2; }));
  // Both answers arrive while the reactor is blocked, so it handles them together.
  reactor_.run([&] {
    go.set_value();
    ASSERT_TRUE(eventually([&] {
      return std::ranges::all_of(server.clientDescriptors(),
                                 [](int client) { return test::unreadBytes(client) > 0; });
    }));
  });
  EXPECT_TRUE(eventually([&] { return server.clientDescriptors().empty(); }));
  settle();
  EXPECT_EQ(calls, 1);
}

TEST_F(HTTPCancelTest, FromWithinTheLastCallbackIsFine) {
  const ScriptedServer server(answer);
  auto task = std::make_shared<HTTPTask>();
  std::promise<void> done;
  reactor_.run([&] {
    *task = session_.send(endless(server), [&, task](const Result<ClientResponse>&) {
      task->cancel();
      done.set_value();
    });
  });
  task.reset();
  EXPECT_EQ(done.get_future().wait_for(test::patience), std::future_status::ready);
}

TEST_F(HTTPCancelTest, StartsNoCallbackAfterwards) {
  const ScriptedServer server(tick, 2);
  for (int i = 0; i < 2000; ++i) {
    std::atomic<bool> cancelled = false;
    std::atomic<int> late = 0;
    std::atomic<int> calls = 0;
    const auto call = [&] {
      if (cancelled) ++late;
      ++calls;
      calls.notify_all();
    };
    auto task = session_.stream(endless(server), {.onStatus =
                                                      [&](int) {
                                                        call();
                                                        return true;
                                                      },
                                                  .onLine = [&](std::string_view) { call(); },
                                                  .onEnd = [&](const auto&) { call(); }});
    std::thread other([&, limit = i % 20] {
      // At once, or among the lines.
      for (int seen = calls; seen < limit; seen = calls) calls.wait(seen);
      task.cancel();
    });
    other.join();
    settle();  // a callback that was running is over
    cancelled = true;
    settle();
    ASSERT_EQ(late, 0);
  }
}

TEST_F(HTTPCancelTest, RacesWithTheAnswerWithoutHarm) {
  const ScriptedServer server(answer, 2);
  for (int i = 0; i < 2000; ++i) {
    const AnswerRecorder recorder;
    auto task = session_.send(endless(server), recorder.done());
    std::thread other([&] { task.cancel(); });
    if (i % 2 == 0) std::this_thread::yield();
    other.join();
    settle();
    const auto count = recorder.count();
    EXPECT_LE(count, 1);
    settle();
    EXPECT_EQ(recorder.count(), count);
  }
}

TEST_F(HTTPCancelTest, ReleasesTheCallbacks) {
  const ScriptedServer server(stall);
  auto kept = std::make_shared<int>();
  auto task =
      session_.send(endless(server), [kept](const Result<ClientResponse>&) { FAIL() << *kept; });
  EXPECT_EQ(kept.use_count(), 2);
  task.cancel();
  EXPECT_TRUE(eventually([&] { return kept.use_count() == 1; }));
}

TEST_F(HTTPCancelTest, IsNotNeededToReleaseTheCallbacksAfterTheEnd) {
  const ScriptedServer server(answer);
  auto kept = std::make_shared<int>();
  std::promise<void> done;
  const auto task = session_.send(
      endless(server), [kept, &done](const Result<ClientResponse>&) { done.set_value(); });
  done.get_future().wait();
  EXPECT_TRUE(eventually([&] { return kept.use_count() == 1; }));
}

TEST(HTTPSession, EndsWithItsReactor) {
  const ScriptedServer stalling(stall, 2);
  const test::StallingPort unreachable;
  auto kept = std::make_shared<int>();
  HTTPTask survivor;
  {
    Reactor reactor;
    const HTTPSession session(reactor, {});
    const auto done = [kept](const Result<ClientResponse>&) { FAIL() << *kept; };
    session.send(endless(stalling), done).detach();
    session.send({.url = "http://" + unreachable.authority()}, done).detach();
    survivor = session.send(endless(stalling), done);
    ASSERT_TRUE(eventually([&] { return stalling.clientDescriptors().size() == 2; }));
    EXPECT_EQ(kept.use_count(), 5);
  }
  EXPECT_EQ(kept.use_count(), 1);
  EXPECT_TRUE(stalling.clientDescriptors().empty());
  survivor.cancel();
}

}  // namespace
}  // namespace zephyl

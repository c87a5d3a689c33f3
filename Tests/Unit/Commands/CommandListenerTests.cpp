#include "ZephylTray/Commands/Server/CommandListener.hpp"

#include <mutex>

#include <gtest/gtest.h>

#include "Support/CommandPeer.hpp"
#include "Support/TemporaryDirectory.hpp"
#include "System/Concurrency/Reactor.hpp"
#include "ZephylTray/Commands/Protocol/CommandMessages.hpp"

namespace zephyl {
namespace {

using test::CommandPeer;

/// A listener that records received lines, on a real socket and in real time.
class CommandListenerTest : public ::testing::Test {
 protected:
  void listen(CommandListener::Options options = {}) {
    auto socket = CommandSocket::listen(directory_.path());
    ASSERT_TRUE(socket) << socket.error().message;
    CommandListener::Handlers handlers;
    handlers.onRequest = [this](const CommandListener::Client& client, std::string_view line) {
      const std::scoped_lock lock(mutex_);
      clients_.push_back(client);
      requests_.emplace_back(line);
    };
    handlers.onClosed = [this](std::uint64_t id) {
      const std::scoped_lock lock(mutex_);
      closed_.push_back(id);
    };
    listener_.emplace(reactor_, *std::move(socket), options, std::move(handlers));
  }
  std::vector<std::string> requests() {
    const std::scoped_lock lock(mutex_);
    return requests_;
  }
  bool await(std::size_t count) {
    return test::eventually([&] { return requests().size() >= count; });
  }
  CommandListener::Client client(std::size_t place) {
    EXPECT_TRUE(await(place + 1));
    const std::scoped_lock lock(mutex_);
    return clients_.at(place);
  }
  std::size_t closedCount() {
    const std::scoped_lock lock(mutex_);
    return closed_.size();
  }

  test::TemporaryDirectory directory_;
  test::ScopedVariable runtime_{"XDG_RUNTIME_DIR"};
  std::mutex mutex_;
  std::vector<CommandListener::Client> clients_;
  std::vector<std::string> requests_;
  std::vector<std::uint64_t> closed_;
  Reactor reactor_;
  std::optional<CommandListener> listener_;
};

TEST_F(CommandListenerTest, ReceivesALineThatArrivesInPieces) {
  listen();
  CommandPeer peer(listener_->path());
  peer.send("{\"sta");
  peer.send("tus\":true}");
  peer.send("\nmore that does not count\n");
  client(0).finish("answer");
  EXPECT_EQ(peer.awaitLine(), "answer");
  EXPECT_TRUE(test::eventually([&] { return peer.isClosed(); }));
  EXPECT_EQ(requests(), std::vector<std::string>{"{\"status\":true}"});
}

TEST_F(CommandListenerTest, SendsManyLinesToAClientUntilItLeaves) {
  listen();
  std::optional<CommandPeer> peer(listener_->path());
  peer->send("watch\n");
  const auto watching = client(0);
  watching.send("one");
  EXPECT_EQ(peer->awaitLine(), "one");
  watching.send("two");
  EXPECT_EQ(peer->awaitLine(), "two");
  EXPECT_EQ(closedCount(), 0U);
  peer.reset();
  EXPECT_TRUE(test::eventually([&] { return closedCount() == 1; }));
  watching.send("three");  // has no effect
}

TEST_F(CommandListenerTest, ClosesAClientThatSendsTooMuch) {
  listen();
  CommandPeer peer(listener_->path());
  peer.send(std::string(maxCommandRequest + 1, 'x'));
  EXPECT_TRUE(test::eventually([&] { return peer.isClosed(); }));
  EXPECT_TRUE(requests().empty());
}

TEST_F(CommandListenerTest, ClosesAClientThatSendsNoCompleteLineInTime) {
  listen({.requestTimeout = std::chrono::milliseconds(20)});
  CommandPeer silent(listener_->path());
  CommandPeer slow(listener_->path());
  slow.send("{\"status\"");
  EXPECT_TRUE(test::eventually([&] { return silent.isClosed() && slow.isClosed(); }));
  EXPECT_EQ(closedCount(), 0U);  // neither had a request
}

TEST_F(CommandListenerTest, KeepsAClientThatWaitsForItsAnswer) {
  listen({.requestTimeout = std::chrono::milliseconds(20)});
  CommandPeer patient(listener_->path());
  patient.send("wait\n");
  ASSERT_TRUE(await(1));
  CommandPeer silent(listener_->path());
  EXPECT_TRUE(test::eventually([&] { return silent.isClosed(); }));  // the same time has passed
  client(0).finish("late");
  EXPECT_EQ(patient.awaitLine(), "late");
}

TEST_F(CommandListenerTest, AClientThatReadsNothingDelaysNobodyAndIsClosed) {
  listen({.maxQueuedBytes = 1 << 20, .sendTimeout = std::chrono::hours(1)});
  const CommandPeer stalled(listener_->path());
  stalled.send("watch\n");
  const auto client0 = client(0);
  for (int i = 0; i < 64 && closedCount() == 0; ++i) client0.send(std::string(65536, 'x'));
  CommandPeer other(listener_->path());
  other.send("status\n");
  client(1).finish("fine");
  EXPECT_EQ(other.awaitLine(), "fine");
  EXPECT_TRUE(test::eventually([&] { return closedCount() == 2; }));
}

TEST_F(CommandListenerTest, ClosesAClientThatReadsNothingInTime) {
  listen({.sendTimeout = std::chrono::milliseconds(20)});
  const CommandPeer stalled(listener_->path());
  stalled.send("watch\n");
  client(0).send(std::string(1 << 20, 'x'));
  EXPECT_TRUE(test::eventually([&] { return closedCount() == 1; }));
}

TEST_F(CommandListenerTest, AClientThatReadsSlowlyGetsEverything) {
  listen();
  CommandPeer peer(listener_->path());
  peer.send("diagnostics\n");
  const std::string text(3 << 20, 'x');
  client(0).finish(text);
  EXPECT_EQ(peer.awaitLine(), text);
}

TEST_F(CommandListenerTest, SilentClientsGiveTheirPlacesToNewOnes) {
  listen({.maxConnections = 2});
  CommandPeer first(listener_->path());
  CommandPeer second(listener_->path());
  CommandPeer third(listener_->path());
  third.send("status\n");
  client(0).finish("fine");
  EXPECT_EQ(third.awaitLine(), "fine");
  EXPECT_TRUE(test::eventually([&] { return first.isClosed(); }));
  EXPECT_FALSE(second.isClosed());
}

TEST_F(CommandListenerTest, ClosesAllConnectionsAtItsEnd) {
  listen();
  const auto path = listener_->path();
  CommandPeer peer(path);
  peer.send("watch\n");
  const auto kept = client(0);
  listener_.reset();
  EXPECT_TRUE(test::eventually([&] { return peer.isClosed(); }));
  EXPECT_FALSE(CommandSocket::connect(path));
  kept.send("nobody is there");
}

}  // namespace
}  // namespace zephyl

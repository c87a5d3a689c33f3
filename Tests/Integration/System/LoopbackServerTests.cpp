#include "System/Network/LoopbackServer.hpp"

#include <atomic>
#include <deque>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include "Support/Eventually.hpp"
#include "Support/RawClient.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;
using test::RawClient;
using Peer = LoopbackServer::Peer;
using Verdict = LoopbackServer::Verdict;

constexpr std::size_t fewConnections = 4;

/// Makes the system refuse to accept on the socket of this process that listens on `port`.
void breakListeningSocket(int port) {
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    const int socket = std::stoi(entry.path().filename());
    int listens = 0;
    socklen_t size = sizeof listens;
    if (::getsockopt(socket, SOL_SOCKET, SO_ACCEPTCONN, &listens, &size) != 0 || listens == 0) {
      continue;
    }
    sockaddr_in address{};
    size = sizeof address;
    ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
    if (ntohs(address.sin_port) == port) ::shutdown(socket, SHUT_RDWR);
  }
}

/// Limits the descriptors that this process can open in addition, until its destruction.
class DescriptorLimit {
 public:
  explicit DescriptorLimit(rlim_t count) {
    ::getrlimit(RLIMIT_NOFILE, &before_);
    const FileDescriptor lowestFree(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    struct rlimit limit = before_;
    limit.rlim_cur = static_cast<rlim_t>(lowestFree.get()) + count;
    ::setrlimit(RLIMIT_NOFILE, &limit);
  }
  ~DescriptorLimit() { ::setrlimit(RLIMIT_NOFILE, &before_); }
  DescriptorLimit(const DescriptorLimit&) = delete;
  DescriptorLimit& operator=(const DescriptorLimit&) = delete;

 private:
  struct rlimit before_ {};
};

/// A listener whose messages end at the first ".". The test handles them.
class LoopbackServerTest : public ::testing::Test {
 protected:
  void open(const std::function<void(const Peer&, std::string_view)>& onMessage) {
    auto listener =
        LoopbackServer::open({.label = "com.example.listener",
                              .maxConnections = fewConnections,
                              .sendTimeout = sendTimeout_},
                             {.onAccepted = [this, onMessage] { return reader(onMessage); },
                              .onFailed =
                                  [this](const Error& error) {
                                    const std::scoped_lock lock(mutex_);
                                    failures_.push_back(error.message);
                                  }});
    ASSERT_TRUE(listener) << listener.error().message;
    listener_ = std::move(*listener);
  }
  LoopbackServer::Reader reader(std::function<void(const Peer&, std::string_view)> onMessage) {
    return [this, onMessage = std::move(onMessage)](const Peer& peer, std::string_view received) {
      ++calls_;
      if (received.find('.') == std::string_view::npos) return Verdict::incomplete;
      onMessage(peer, received);
      return Verdict::complete;
    };
  }
  void openEcho() {
    open([](const Peer& peer, std::string_view received) { peer.send(std::string(received)); });
  }
  /// Delays answers until the test releases them.
  void openSilent() {
    open([this](const Peer& peer, std::string_view) {
      const std::scoped_lock lock(mutex_);
      waiting_.push_back(peer);
    });
  }
  std::size_t waitingCount() {
    const std::scoped_lock lock(mutex_);
    return waiting_.size();
  }
  std::vector<std::string> failures() {
    const std::scoped_lock lock(mutex_);
    return failures_;
  }
  RawClient client() { return RawClient(listener_->port()); }

  void TearDown() override { EXPECT_EQ(failures(), expectedFailures_); }

  Duration sendTimeout_ = 30s;
  std::vector<std::string> expectedFailures_;
  std::atomic<int> calls_ = 0;
  std::mutex mutex_;
  std::vector<std::string> failures_;
  std::deque<Peer> waiting_;
  std::unique_ptr<LoopbackServer> listener_;
};

TEST_F(LoopbackServerTest, AnswersAMessageAndCloses) {
  openEcho();
  const auto peer = client();
  peer.send("hello.");
  EXPECT_EQ(peer.receiveAll(), "hello.");
}

TEST_F(LoopbackServerTest, JoinsAMessageThatArrivesInPieces) {
  openEcho();
  const auto peer = client();
  for (const char letter : std::string("hello.")) {
    const int before = calls_;
    peer.send({&letter, 1});
    ASSERT_TRUE(test::eventually([&] { return calls_ > before; }));
  }
  EXPECT_EQ(peer.receiveAll(), "hello.");
}

TEST_F(LoopbackServerTest, ClosesWithoutAnAnswerIfTheMessageStaysIncomplete) {
  openEcho();
  const auto peer = client();
  peer.send("hello");
  peer.finishSending();
  EXPECT_EQ(peer.receiveAll(), "");
}

TEST_F(LoopbackServerTest, AnswersAPeerThatHasFinishedSending) {
  openEcho();
  const auto peer = client();
  peer.send("hello.");
  peer.finishSending();
  EXPECT_EQ(peer.receiveAll(), "hello.");
}

TEST_F(LoopbackServerTest, AnswersFromAnotherThreadLater) {
  openSilent();
  const auto peer = client();
  peer.send("hello.");
  ASSERT_TRUE(test::eventually([this] { return waitingCount() == 1; }));
  waiting_.front().send("late");
  EXPECT_EQ(peer.receiveAll(), "late");
}

TEST_F(LoopbackServerTest, ClosesWhenTheLastReferenceToAPeerIsReleased) {
  openSilent();
  const auto peer = client();
  peer.send("hello.");
  ASSERT_TRUE(test::eventually([this] { return waitingCount() == 1; }));
  waiting_.clear();
  EXPECT_EQ(peer.receiveAll(), "");
}

TEST_F(LoopbackServerTest, AnswersAPeerOnce) {
  open([](const Peer& peer, std::string_view) {
    peer.send("first");
    peer.send("second");
  });
  const auto peer = client();
  peer.send("hello.");
  EXPECT_EQ(peer.receiveAll(), "first");
}

TEST_F(LoopbackServerTest, SendsALongAnswerToASlowReader) {
  const std::string answer(8UL << 20, 'x');
  open([&](const Peer& peer, std::string_view) { peer.send(answer); });
  const auto slow = client();
  slow.send("hello.");
  const auto quick = client();
  quick.send("hello.");
  EXPECT_EQ(quick.receiveAll(), answer);
  EXPECT_EQ(slow.receiveAll(), answer);
}

TEST_F(LoopbackServerTest, ClosesPeersThatDoNotReadTheirAnswer) {
  sendTimeout_ = 20ms;
  const std::string answer(32UL << 20, 'x');
  open([&](const Peer& peer, std::string_view received) {
    if (received == "all.") return peer.send(answer);
    const std::scoped_lock lock(mutex_);
    waiting_.push_back(peer);
  });
  std::vector<RawClient> idle;
  std::vector<RawClient> others;
  for (std::size_t i = 0; i < fewConnections; ++i) {
    idle.push_back(client());
    idle.back().send("all.");
  }
  for (std::size_t i = 0; i < fewConnections; ++i) {
    others.push_back(client());
    others.back().send("hello.");
  }
  ASSERT_TRUE(test::eventually([this] { return waitingCount() == fewConnections; }))
      << "idle connections keep their places";
  for (const auto& peer : idle) {
    const auto taken = peer.receiveAll();
    EXPECT_LT(taken.size(), answer.size());
    EXPECT_FALSE(taken.ends_with("(silence)"));
  }
}

TEST_F(LoopbackServerTest, AnswersWhileThePeerStillSendsALot) {
  open([](const Peer& peer, std::string_view) { peer.refuse("enough"); });
  const auto peer = client();
  peer.send(".");
  for (int i = 0; i < 8; ++i) ASSERT_TRUE(peer.send(std::string(64UL << 10, 'x')));
  peer.finishSending();
  EXPECT_EQ(peer.receiveAll(), "enough");
}

TEST_F(LoopbackServerTest, IsNotDelayedByASilentPeer) {
  openEcho();
  const auto silent = client();
  silent.send("hel");
  const auto other = client();
  other.send("hello.");
  EXPECT_EQ(other.receiveAll(), "hello.");
  silent.send("lo.");
  EXPECT_EQ(silent.receiveAll(), "hello.");
}

TEST_F(LoopbackServerTest, NewPeersDoNotDelayConnectedOnes) {
  openEcho();
  constexpr std::size_t crowdSize = 2;
  std::vector<std::jthread> crowd;
  crowd.reserve(crowdSize);
  for (std::size_t i = 0; i < crowdSize; ++i) {
    crowd.emplace_back([this](const std::stop_token& stop) {
      while (!stop.stop_requested()) {
        const auto peer = client();
        peer.send("quick.");
        static_cast<void>(peer.receiveAll());
      }
    });
  }
  for (int i = 0; i < 20; ++i) {
    const auto patient = client();
    const int before = calls_;
    ASSERT_TRUE(test::eventually([&] { return calls_ > before + 20; }));
    patient.send("patient.");
    EXPECT_TRUE(patient.isReadable(500ms));
    EXPECT_EQ(patient.receiveAll(), "patient.");
  }
}

TEST_F(LoopbackServerTest, MakesRoomByClosingTheOldestIncompletePeer) {
  openSilent();
  const auto whole = client();
  whole.send("whole.");
  ASSERT_TRUE(test::eventually([this] { return waitingCount() == 1; }));
  std::vector<RawClient> silent;
  for (std::size_t i = 1; i < fewConnections; ++i) silent.push_back(client());
  const auto late = client();
  late.send("late.");
  ASSERT_TRUE(test::eventually([this] { return waitingCount() == 2; }));
  EXPECT_EQ(silent.front().receiveAll(), "");
  EXPECT_FALSE(silent.back().isReadable(0ms));
  EXPECT_FALSE(whole.isReadable(0ms));
}

/// Opens the maximum number of connections. Each is refused and keeps sending.
std::vector<RawClient> refusedClients(const std::function<RawClient()>& connect) {
  std::vector<RawClient> clients;
  for (std::size_t i = 0; i < fewConnections; ++i) {
    clients.push_back(connect());
    clients.back().send("bad.");
    EXPECT_TRUE(clients.back().isReadable(10s));
  }
  return clients;
}

TEST_F(LoopbackServerTest, MakesRoomForOthersWhenDescriptorsRunOut) {
  openEcho();
  const RawClient silent(listener_->port());
  ASSERT_TRUE(silent.send("a"));
  ASSERT_TRUE(test::eventually([this] { return calls_ == 1; }));
  const DescriptorLimit limit(1);
  const RawClient other(listener_->port());
  ASSERT_TRUE(other.send("b."));
  EXPECT_EQ(other.receiveAll(), "b.");
  EXPECT_EQ(silent.receiveAll(), "");
}

TEST_F(LoopbackServerTest, ClosesNoPeerIfDescriptorsAreFreeAgain) {
  openEcho();
  bool inTime = false;  // whether they were free before the next attempt to accept
  for (int attempt = 0; attempt < 20 && !inTime; ++attempt) {
    const int before = calls_;
    const RawClient silent(listener_->port());
    ASSERT_TRUE(silent.send("a"));
    ASSERT_TRUE(test::eventually([&] { return calls_ > before; }));
    std::optional<DescriptorLimit> limit(1);
    const auto begin = std::chrono::steady_clock::now();
    const RawClient other(listener_->port());
    ASSERT_TRUE(other.send("b."));
    (void)other.isReadable(20ms);  // until the listener lacks a descriptor
    limit.reset();
    inTime = std::chrono::steady_clock::now() - begin < 90ms;
    EXPECT_EQ(other.receiveAll(), "b.");
    EXPECT_FALSE(inTime && silent.isReadable(100ms));
  }
  EXPECT_TRUE(inTime);
}

TEST_F(LoopbackServerTest, MakesRoomByClosingRefusedPeersThatKeepSending) {
  open([](const Peer& peer, std::string_view received) {
    if (received == "bad.") return peer.refuse("no");
    peer.send("yes");
  });
  const auto refused = refusedClients([this] { return client(); });
  const auto late = client();
  late.send("late.");
  EXPECT_TRUE(late.isReadable(1s)) << "must not wait until the refused ones are drained";
  EXPECT_EQ(late.receiveAll(), "yes");
  EXPECT_EQ(refused.front().receiveAll(), "no");
}

TEST_F(LoopbackServerTest, ClosesRefusedPeersBeforeIncompleteOnes) {
  open([](const Peer& peer, std::string_view received) {
    if (received == "bad.") return peer.refuse("no");
    peer.send("yes");
  });
  const auto slow = client();
  slow.send("slow");
  ASSERT_TRUE(test::eventually([this] { return calls_ == 1; }));
  std::vector<RawClient> refused;
  for (std::size_t i = 1; i < fewConnections; ++i) {
    refused.push_back(client());
    refused.back().send("bad.");
    ASSERT_TRUE(refused.back().isReadable(10s));
  }
  const auto late = client();
  late.send("late.");
  EXPECT_EQ(late.receiveAll(), "yes");
  slow.send(".");
  EXPECT_EQ(slow.receiveAll(), "yes");
}

TEST_F(LoopbackServerTest, LetsNewPeersWaitWhileAllHaveSentACompleteMessage) {
  openSilent();
  std::vector<RawClient> clients;
  for (std::size_t i = 0; i < fewConnections; ++i) {
    clients.push_back(client());
    clients.back().send("hello.");
  }
  ASSERT_TRUE(test::eventually([this] { return waitingCount() == fewConnections; }));
  const auto late = client();
  late.send("late.");
  EXPECT_FALSE(late.isReadable(50ms));
  EXPECT_EQ(waitingCount(), fewConnections);
  waiting_.front().send("done");
  EXPECT_EQ(clients.front().receiveAll(), "done");
  EXPECT_TRUE(test::eventually([this] { return waitingCount() == fewConnections + 1; }));
}

TEST_F(LoopbackServerTest, CancellingStopsAcceptingAndEndsOpenConnections) {
  openSilent();
  const auto peer = client();
  peer.send("hello.");
  ASSERT_TRUE(test::eventually([this] { return waitingCount() == 1; }));
  const int port = listener_->port();
  listener_->cancel();
  EXPECT_TRUE(test::eventually([&] { return !RawClient(port).connected(); }));
  waiting_.front().send("done");
  EXPECT_EQ(peer.receiveAll(), "done");
}

TEST_F(LoopbackServerTest, APeerMayOutliveTheListener) {
  openSilent();
  const auto peer = client();
  peer.send("hello.");
  ASSERT_TRUE(test::eventually([this] { return waitingCount() == 1; }));
  listener_.reset();
  EXPECT_EQ(peer.receiveAll(), "");
  waiting_.front().send("too late");
  waiting_.clear();
}

TEST_F(LoopbackServerTest, ReportsAPermanentFailureOnce) {
  openSilent();
  const auto peer = client();
  peer.send("hello.");
  ASSERT_TRUE(test::eventually([this] { return waitingCount() == 1; }));
  breakListeningSocket(listener_->port());
  ASSERT_TRUE(test::eventually([this] { return !failures().empty(); }));
  expectedFailures_ = {"accept: Invalid argument"};
  waiting_.front().send("done");
  EXPECT_EQ(peer.receiveAll(), "done") << "running exchanges continue";
}

TEST_F(LoopbackServerTest, ReportsWhyItCannotBeOpened) {
  openEcho();
  const auto second = LoopbackServer::open({.port = listener_->port()}, {});
  ASSERT_FALSE(second);
  EXPECT_EQ(second.error().message,
            "127.0.0.1:" + std::to_string(listener_->port()) + ": Address already in use");
}

}  // namespace
}  // namespace zephyl

#include <atomic>

#include <gtest/gtest.h>

#include "HTTPRecorders.hpp"
#include "ScriptedServer.hpp"
#include "Support/Eventually.hpp"
#include "System/Concurrency/Reactor.hpp"
#include "System/Data/Format.hpp"
#include "System/Network/HTTPSession.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;
using test::AnswerRecorder;
using test::eventually;
using test::ScriptedPeer;
using test::ScriptedServer;

constexpr auto shortAnswer = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";

class HTTPKeptConnectionTest : public testing::Test {
 protected:
  /// Status and body of the answer, or the error.
  std::string outcome(ClientRequest request) {
    const AnswerRecorder recorder;
    const auto task = session_.send(std::move(request), recorder.done());
    const auto received = recorder.wait();
    if (!received) return received.error().message;
    return formatText("{} {}", received->status, received->body);
  }

  /// Answers so many requests on each connection, then runs `then`.
  ScriptedServer::Script answering(int times, std::function<void(const ScriptedPeer&)> then = {}) {
    return [this, times, then = std::move(then)](const ScriptedPeer& peer) {
      ++connections_;
      for (int i = 0; i < times; ++i) {
        const auto request = peer.receiveRequest();
        if (request.empty()) return;
        ++requests_;
        peer.send(shortAnswer);
      }
      if (then) then(peer);
    };
  }

  std::atomic<int> connections_ = 0;
  std::atomic<int> requests_ = 0;
  std::atomic<int> checks_ = 0;
  Reactor reactor_;
  HTTPSession session_{
      reactor_,
      {.requestTimeout = 30s,
       .onConnected = [this](const std::string&, std::uint16_t) -> std::optional<Error> {
         ++checks_;
         return std::nullopt;
       },
       .keepsConnection = true}};
};

TEST_F(HTTPKeptConnectionTest, SendsFurtherRequestsOnTheSameConnection) {
  const ScriptedServer server(answering(1000), 2);
  for (int i = 0; i < 20; ++i) EXPECT_EQ(outcome({.url = server.url()}), "200 ok");
  EXPECT_EQ(connections_, 1);
  EXPECT_EQ(checks_, 1);
}

TEST_F(HTTPKeptConnectionTest, DoesNotAskTheServerToClose) {
  std::string received;
  const ScriptedServer server([&](const ScriptedPeer& peer) {
    received = peer.receiveRequest();
    peer.send(shortAnswer);
  });
  EXPECT_EQ(outcome({.url = server.url()}), "200 ok");
  EXPECT_EQ(received, "GET / HTTP/1.1\r\nHost: " + server.authority() + "\r\nAccept: */*\r\n\r\n");
}

TEST_F(HTTPKeptConnectionTest, ConnectsAgainOnceTheServerHasClosed) {
  const ScriptedServer server(answering(1));
  for (int i = 1; i <= 3; ++i) {
    EXPECT_EQ(outcome({.url = server.url()}), "200 ok");
    EXPECT_EQ(connections_, i);
    EXPECT_TRUE(eventually([&] { return server.clientDescriptors().empty(); }));
  }
}

TEST_F(HTTPKeptConnectionTest, SendsTheRequestAgainIfTheServerClosesInsteadOfAnswering) {
  std::atomic<int> unanswered = 0;
  const ScriptedServer server(answering(1,
                                        [&](const ScriptedPeer& peer) {
                                          if (unanswered > 0) return;
                                          if (!peer.receiveRequest().empty()) ++unanswered;
                                        }),
                              2);
  EXPECT_EQ(outcome({.url = server.url()}), "200 ok");
  EXPECT_EQ(outcome({.url = server.url()}), "200 ok");
  EXPECT_EQ(unanswered, 1);
  EXPECT_EQ(connections_, 2);
  EXPECT_EQ(checks_, 2);
}

TEST_F(HTTPKeptConnectionTest, ANewConnectionThatClosesIsAnError) {
  const ScriptedServer server([&](const ScriptedPeer& peer) {
    ++connections_;
    (void)peer.receiveRequest();
  });
  EXPECT_EQ(outcome({.url = server.url()}), "no response");
  EXPECT_EQ(connections_, 1);
}

TEST_F(HTTPKeptConnectionTest, AnAnswerThatBreaksOffIsNotRequestedAgain) {
  const ScriptedServer server(
      answering(1,
                [](const ScriptedPeer& peer) {
                  (void)peer.receiveRequest();
                  peer.send("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\no");
                }),
      2);
  EXPECT_EQ(outcome({.url = server.url()}), "200 ok");
  EXPECT_EQ(outcome({.url = server.url()}),
            server.authority() + " closed the connection before the end of its answer");
  EXPECT_EQ(connections_, 1);
}

TEST_F(HTTPKeptConnectionTest, DoesNotKeepAConnectionThatCannotCarryMore) {
  for (const std::string text :
       {"HTTP/1.1 200 OK\r\nContent-Length: 2\r\nConnection: close\r\n\r\nok",
        "HTTP/1.0 200 OK\r\nContent-Length: 2\r\n\r\nok",
        "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok and more"}) {
    const ScriptedServer server([&](const ScriptedPeer& peer) {
      (void)peer.receiveRequest();
      peer.send(text);
      peer.waitUntilLeft();
    });
    EXPECT_EQ(outcome({.url = server.url()}), "200 ok") << text;
    EXPECT_TRUE(eventually([&] { return server.clientDescriptors().empty(); })) << text;
  }
}

TEST_F(HTTPKeptConnectionTest, ClosesAKeptConnectionOnWhichSomethingArrives) {
  const ScriptedServer server(answering(1, [](const ScriptedPeer& peer) {
    peer.send("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nwrong");
    peer.waitUntilLeft();
  }));
  EXPECT_EQ(outcome({.url = server.url()}), "200 ok");
  EXPECT_TRUE(eventually([&] { return server.clientDescriptors().empty(); }));
  EXPECT_EQ(outcome({.url = server.url()}), "200 ok");
}

TEST_F(HTTPKeptConnectionTest, RequestsThatChangeSomethingHaveAConnectionOfTheirOwn) {
  const ScriptedServer server(answering(1000), 2);
  EXPECT_EQ(outcome({.url = server.url()}), "200 ok");
  EXPECT_EQ(outcome({.method = "POST", .url = server.url()}), "200 ok");
  EXPECT_EQ(connections_, 2);
}

TEST_F(HTTPKeptConnectionTest, AnotherServerGetsAConnectionOfItsOwn) {
  const ScriptedServer one(answering(1000));
  const ScriptedServer other(answering(1000));
  EXPECT_EQ(outcome({.url = one.url()}), "200 ok");
  EXPECT_EQ(outcome({.url = other.url()}), "200 ok");
  EXPECT_EQ(connections_, 2);
}

TEST_F(HTTPKeptConnectionTest, ASessionThatEndsClosesItsConnection) {
  const ScriptedServer server(answering(1000));
  EXPECT_EQ(outcome({.url = server.url()}), "200 ok");
  EXPECT_EQ(server.clientDescriptors().size(), 1U);
  session_ = HTTPSession(reactor_, {});
  EXPECT_TRUE(eventually([&] { return server.clientDescriptors().empty(); }));
}

TEST_F(HTTPKeptConnectionTest, AReusedConnectionThatStaysSilentTimesOut) {
  session_ = HTTPSession(reactor_, {.requestTimeout = 100ms, .keepsConnection = true});
  const ScriptedServer server(answering(1, [](const ScriptedPeer& peer) { peer.waitUntilLeft(); }));
  EXPECT_EQ(outcome({.url = server.url()}), "200 ok");
  EXPECT_EQ(outcome({.url = server.url()}), "timed out waiting for " + server.authority());
}

}  // namespace
}  // namespace zephyl

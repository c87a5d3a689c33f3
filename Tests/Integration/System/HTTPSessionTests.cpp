#include "System/Network/HTTPSession.hpp"

#include <atomic>
#include <filesystem>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <malloc.h>
#include <netdb.h>
#include <sys/socket.h>

#include "HTTPRecorders.hpp"
#include "ScriptedServer.hpp"
#include "Support/Eventually.hpp"
#include "Support/Processes.hpp"
#include "System/Concurrency/Reactor.hpp"
#include "System/Data/Format.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;
using test::AnswerRecorder;
using test::eventually;
using test::ScriptedPeer;
using test::ScriptedServer;

constexpr auto brief = 100ms;

/// Returns a script that answers every request with `text`.
ScriptedServer::Script answering(std::string text) {
  return [text = std::move(text)](const ScriptedPeer& peer) {
    (void)peer.receiveRequest();
    peer.send(text);
  };
}

std::size_t threadsOfThisProcess() {
  namespace fs = std::filesystem;
  return static_cast<std::size_t>(
      std::distance(fs::directory_iterator("/proc/self/task"), fs::directory_iterator()));
}

class HTTPSessionTest : public testing::Test {
 protected:
  Result<ClientResponse> fetch(ClientRequest request,
                               const HTTPSession::Configuration& limits = {}) {
    const AnswerRecorder recorder;
    auto task = HTTPSession(reactor_, limits).send(std::move(request), recorder.done());
    return recorder.wait();
  }

  /// Returns status and body of the answer, or the error.
  std::string outcome(ClientRequest request, const HTTPSession::Configuration& limits = {}) {
    const auto answer = fetch(std::move(request), limits);
    if (!answer) return answer.error().message;
    return formatText("{} {}", answer->status, answer->body);
  }

  std::string outcomeOf(const std::string& answer, const HTTPSession::Configuration& limits = {}) {
    const ScriptedServer server(answering(answer));
    auto text = outcome({.url = server.url()}, limits);
    // The port differs from run to run.
    if (const auto at = text.find(server.authority()); at != std::string::npos)
      text.replace(at, server.authority().size(), "SERVER");
    return text;
  }

  Reactor reactor_;
};

TEST_F(HTTPSessionTest, SendsTheRequestAndDeliversTheAnswer) {
  std::string received;
  const ScriptedServer server([&](const ScriptedPeer& peer) {
    received = peer.receiveRequest();
    peer.send("HTTP/1.1 201 Created\r\nContent-Length: 5\r\n\r\nhello");
  });
  EXPECT_EQ(outcome({.method = "POST",
                     .url = server.url("/api/roots?a=b"),
                     .contentType = "application/json",
                     .body = "{}"}),
            "201 hello");
  EXPECT_EQ(received,
            "POST /api/roots?a=b HTTP/1.1\r\nHost: " + server.authority() +
                "\r\nAccept: */*\r\nConnection: close\r\nContent-Type: application/json\r\n"
                "Content-Length: 2\r\n\r\n{}");
}

TEST_F(HTTPSessionTest, DeliversAnyStatus) {
  EXPECT_EQ(outcomeOf("HTTP/1.1 404 Not Found\r\nContent-Length: 4\r\n\r\nnone"), "404 none");
  EXPECT_EQ(outcomeOf("HTTP/1.1 500 Oops\r\nContent-Length: 0\r\n\r\n"), "500 ");
  EXPECT_EQ(outcomeOf("HTTP/1.0 302 Found\r\nLocation: /a\r\nContent-Length: 1\r\n\r\nx"), "302 x");
}

TEST_F(HTTPSessionTest, ReadsAChunkedBody) {
  EXPECT_EQ(outcomeOf("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
                      "5;name=value\r\nhello\r\n1\r\n \r\n5\r\nworld\r\n0\r\nTrailer: 1\r\n\r\n"),
            "200 hello world");
}

TEST_F(HTTPSessionTest, ReadsABodyThatEndsWithTheConnection) {
  EXPECT_EQ(outcomeOf("HTTP/1.1 200 OK\r\n\r\nhello"), "200 hello");
  EXPECT_EQ(outcomeOf("HTTP/1.0 200 OK\r\n\r\n"), "200 ");
}

TEST_F(HTTPSessionTest, DoesNotWaitForABodyIfThereIsNone) {
  const ScriptedServer server([](const ScriptedPeer& peer) {
    (void)peer.receiveRequest();
    peer.send("HTTP/1.1 204 No Content\r\nContent-Length: 10\r\n\r\n");
    peer.waitUntilLeft();
  });
  EXPECT_EQ(outcome({.method = "DELETE", .url = server.url()}), "204 ");
}

TEST_F(HTTPSessionTest, DoesNotWaitForTheEndOfTheConnectionAfterTheBody) {
  const ScriptedServer server([](const ScriptedPeer& peer) {
    (void)peer.receiveRequest();
    peer.send("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok");
    peer.waitUntilLeft();
  });
  EXPECT_EQ(outcome({.url = server.url()}), "200 ok");
}

TEST_F(HTTPSessionTest, SkipsInterimAnswers) {
  EXPECT_EQ(outcomeOf("HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 103 Early Hints\r\nLink: a\r\n\r\n"
                      "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok"),
            "200 ok");
  EXPECT_EQ(outcomeOf("HTTP/1.1 100 Continue\r\n\r\n"), "no response");
}

TEST_F(HTTPSessionTest, ReadsAnAnswerByteByByte) {
  for (const auto* text : {"HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\nServer: x\r\n"
                           "Content-Length: 6\r\n\r\nh\xc3\xa9llo",
                           "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
                           "3;x=y\r\nh\xc3\xa9\r\n3\r\nllo\r\n0\r\n\r\n",
                           "HTTP/1.0 200 OK\r\n\r\nh\xc3\xa9llo"}) {
    const ScriptedServer server([&](const ScriptedPeer& peer) {
      (void)peer.receiveRequest();
      peer.sendInSingleBytes(text);
    });
    EXPECT_EQ(outcome({.url = server.url()}), "200 héllo") << text;
  }
}

TEST_F(HTTPSessionTest, SendsALargeBodyCompletely) {
  std::size_t received = 0;
  const ScriptedServer server([&](const ScriptedPeer& peer) {
    received = peer.receiveRequest().size();
    peer.send("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
  });
  const std::string body(8UL << 20, 'x');
  EXPECT_EQ(outcome({.method = "POST", .url = server.url(), .body = body}), "200 ");
  EXPECT_GT(received, body.size());
}

TEST_F(HTTPSessionTest, ReadsAnAnswerThatArrivesBeforeTheRequestIsRead) {
  const ScriptedServer server([](const ScriptedPeer& peer) {
    peer.send("HTTP/1.1 413 Too Large\r\nContent-Length: 3\r\n\r\nbig");
    peer.waitUntilLeft();
  });
  const std::string body(8UL << 20, 'x');
  EXPECT_EQ(outcome({.method = "POST", .url = server.url(), .body = body}), "413 big");
}

TEST_F(HTTPSessionTest, ConnectsOverIPv6) {
  const ScriptedServer server(answering("HTTP/1.1 200 OK\r\n\r\nsix"), 1, AF_INET6);
  EXPECT_EQ(outcome({.url = server.url()}), "200 six");
}

/// Returns whether the system resolves a name. Minimal ones lack /etc/hosts.
bool isKnown(const char* name) {
  addrinfo* found = nullptr;
  if (::getaddrinfo(name, nullptr, nullptr, &found) != 0) return false;
  ::freeaddrinfo(found);
  return true;
}

TEST_F(HTTPSessionTest, ConnectsToAName) {
  if (!isKnown("localhost")) GTEST_SKIP() << "this system does not resolve localhost";
  const ScriptedServer server(answering("HTTP/1.1 200 OK\r\n\r\nnamed"));
  // If the name also has an IPv6 address, nothing listens there.
  EXPECT_EQ(outcome({.url = formatText("http://localhost:{}/", server.port())}), "200 named");
}

TEST_F(HTTPSessionTest, NeedsNoThreadForANumericAddress) {
  const ScriptedServer server(answering("HTTP/1.1 200 OK\r\n\r\n"));
  const auto before = threadsOfThisProcess();
  EXPECT_EQ(outcome({.url = server.url()}), "200 ");
  EXPECT_EQ(threadsOfThisProcess(), before);
}

TEST_F(HTTPSessionTest, ReportsANameThatDoesNotExist) {
  const auto text = outcome({.url = "http://nowhere.invalid:1/"}, {.requestTimeout = 5s});
  EXPECT_TRUE(text.starts_with("could not connect to nowhere.invalid:1: ")) << text;
}

TEST_F(HTTPSessionTest, ReportsARefusedConnection) {
  const test::RefusingPort port;
  EXPECT_EQ(outcome({.url = "http://" + port.authority()}),
            "could not connect to " + port.authority() + ": Connection refused");
}

TEST_F(HTTPSessionTest, ReportsAConnectionThatTakesTooLong) {
  const test::StallingPort port;
  EXPECT_EQ(outcome({.url = "http://" + port.authority()}, {.requestTimeout = brief}),
            "could not connect to " + port.authority() + ": timed out");
}

TEST_F(HTTPSessionTest, ReportsAnAddressThatIsNotHTTP) {
  EXPECT_EQ(outcome({.url = "https://127.0.0.1/"}), "not an http address: https://127.0.0.1/");
  EXPECT_EQ(outcome({.url = "nonsense"}), "not an http address: nonsense");
}

TEST_F(HTTPSessionTest, ReportsAServerThatDoesNotSpeakHTTP) {
  for (const auto* text :
       {"SSH-2.0-OpenSSH_9.2\r\n", "\r\n\r\n", "HTTP/9.9 200 OK\r\n\r\n", "HTTP/1.1 2x0 OK\r\n\r\n",
        "HTTP/1.1 200 OK\r\nno field\r\n\r\n", "HTTP/1.1 200 OK\r\nContent-Length: many\r\n\r\n",
        "HTTP/1.1 20", "", "HTTP/1.1 200 OK\r\nServer: cut o"}) {
    EXPECT_EQ(outcomeOf(text), "no response") << text;
  }
}

TEST_F(HTTPSessionTest, ReportsABodyThatIsCutOff) {
  EXPECT_EQ(outcomeOf("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhello"),
            "SERVER closed the connection before the end of its answer");
  EXPECT_EQ(outcomeOf("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhel"),
            "SERVER closed the connection before the end of its answer");
}

TEST_F(HTTPSessionTest, ReportsAMalformedBody) {
  EXPECT_EQ(outcomeOf("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nfive\r\nhello\r\n"),
            "SERVER sent a malformed answer");
}

TEST_F(HTTPSessionTest, ReportsAReset) {
  const ScriptedServer server([](const ScriptedPeer& peer) {
    (void)peer.receiveRequest();
    peer.resetOnClose();
  });
  EXPECT_EQ(outcome({.url = server.url()}),
            "lost the connection to " + server.authority() + ": Connection reset by peer");
}

TEST_F(HTTPSessionTest, ReportsAServerThatFallsSilent) {
  for (const auto* text : {"", "HTTP/1.1 200 OK\r\n", "HTTP/1.1 200 OK\r\n\r\nhel"}) {
    const ScriptedServer server([&](const ScriptedPeer& peer) {
      (void)peer.receiveRequest();
      peer.send(text);
      peer.waitUntilLeft();
    });
    EXPECT_EQ(outcome({.url = server.url()}, {.requestTimeout = brief}),
              "timed out waiting for " + server.authority());
  }
}

TEST_F(HTTPSessionTest, AcceptsASlowAnswerThatKeepsArriving) {
  const ScriptedServer server([](const ScriptedPeer& peer) {
    (void)peer.receiveRequest();
    peer.send("HTTP/1.1 200 OK\r\n\r\n");
    for (int i = 0; i < 12 && !peer.isLeftWithin(100ms); ++i) peer.send(".");
  });
  EXPECT_EQ(outcome({.url = server.url()}, {.requestTimeout = 1s}), "200 ............");
}

TEST_F(HTTPSessionTest, ReportsAnAnswerThatExceedsTheTotalTimeOut) {
  std::atomic<int> sent = 0;
  const ScriptedServer server([&](const ScriptedPeer& peer) {
    (void)peer.receiveRequest();
    peer.send("HTTP/1.1 200 OK\r\n\r\n");
    while (!peer.isLeftWithin(5ms)) sent += peer.send(".") ? 1 : 0;
  });
  EXPECT_EQ(outcome({.url = server.url(), .timeout = 500ms}, {.requestTimeout = 30s}),
            "timed out: " + server.authority() + " did not finish in time");
  EXPECT_GT(sent, 1);
}

TEST_F(HTTPSessionTest, AcceptsAnAnswerOfExactlyTheLimit) {
  const HTTPSession::Configuration limits{.maxBodyBytes = 5};
  EXPECT_EQ(outcomeOf("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello", limits), "200 hello");
  EXPECT_EQ(outcomeOf("HTTP/1.1 200 OK\r\n\r\nhello", limits), "200 hello");
  EXPECT_EQ(outcomeOf("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
                      "2\r\nhe\r\n3\r\nllo\r\n0\r\n\r\n",
                      limits),
            "200 hello");
}

TEST_F(HTTPSessionTest, RefusesAnAnswerBeyondTheLimit) {
  const HTTPSession::Configuration limits{.maxBodyBytes = 5};
  EXPECT_EQ(outcomeOf("HTTP/1.1 200 OK\r\n\r\nhello!", limits), "SERVER sent more than 5 bytes");
  EXPECT_EQ(outcomeOf("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
                      "2\r\nhe\r\n4\r\nllo!\r\n0\r\n\r\n",
                      limits),
            "SERVER sent more than 5 bytes");
}

TEST_F(HTTPSessionTest, RefusesALengthBeyondTheLimitBeforeTheBodyArrives) {
  const ScriptedServer server([](const ScriptedPeer& peer) {
    (void)peer.receiveRequest();
    peer.send("HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\n");
    peer.waitUntilLeft();
  });
  EXPECT_EQ(outcome({.url = server.url()}, {.maxBodyBytes = 5}),
            server.authority() + " sent more than 5 bytes");
}

TEST_F(HTTPSessionTest, StopsReadingAHugeAnswerAtTheLimit) {
  constexpr std::size_t hundredMegabytes = 100'000'000;
  for (const std::string chunkHead : {"", "100000\r\n"}) {
    std::atomic<std::size_t> sent = 0;
    const ScriptedServer server([&](const ScriptedPeer& peer) {
      (void)peer.receiveRequest();
      peer.send("HTTP/1.1 200 OK\r\n");
      peer.send(chunkHead.empty() ? "\r\n" : "Transfer-Encoding: chunked\r\n\r\n");
      const auto piece =
          chunkHead + std::string(1UL << 20, 'x') + (chunkHead.empty() ? "" : "\r\n");
      while (sent < hundredMegabytes && peer.send(piece)) sent += piece.size();
    });
    EXPECT_EQ(outcome({.url = server.url()}, {.maxBodyBytes = 1UL << 20}),
              server.authority() + " sent more than 1048576 bytes");
    // The bytes in the buffers of the sockets are lost.
    EXPECT_LT(sent, hundredMegabytes / 2);
  }
}

TEST_F(HTTPSessionTest, BoundsTheHead) {
  const std::string field = "Name: " + std::string(1000, 'x') + "\r\n";
  for (const std::string& endless :
       {std::string("x"), field, std::string("HTTP/1.1 100 Continue\r\n\r\n")}) {
    const ScriptedServer server([&](const ScriptedPeer& peer) {
      (void)peer.receiveRequest();
      if (!endless.starts_with("HTTP")) peer.send("HTTP/1.1 200 OK\r\nName: x\r\n");
      if (endless == "x") peer.send("Name: ");
      while (peer.send(endless)) continue;
    });
    EXPECT_EQ(outcome({.url = server.url()}), "no response") << endless;
  }
}

TEST_F(HTTPSessionTest, BoundsTheHeadOfAChunk) {
  const ScriptedServer server([&](const ScriptedPeer& peer) {
    (void)peer.receiveRequest();
    peer.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5;name=");
    while (peer.send("xxxxxxxxxxxxxxxx")) continue;
  });
  EXPECT_EQ(outcome({.url = server.url()}), server.authority() + " sent a malformed answer");
}

TEST_F(HTTPSessionTest, RunsManyExchangesAtOnce) {
  constexpr int count = 64;
  std::atomic<int> waiting = 0;
  const ScriptedServer server(
      [&](const ScriptedPeer& peer) {
        const auto request = peer.receiveRequest();
        ++waiting;  // no answer is sent before all requests have arrived
        eventually([&] { return waiting == count; });
        peer.send("HTTP/1.1 200 OK\r\n\r\n" + request.substr(4, request.find(' ', 4) - 4));
      },
      count);
  const HTTPSession session(reactor_, {});
  std::vector<AnswerRecorder> recorders(count);
  std::vector<HTTPTask> tasks(count);
  for (std::size_t i = 0; i < count; ++i)
    tasks[i] = session.send({.url = server.url(formatText("/{}", i))}, recorders[i].done());
  for (std::size_t i = 0; i < count; ++i) {
    const auto answer = recorders[i].wait();
    ASSERT_TRUE(answer) << answer.error().message;
    EXPECT_EQ(answer->body, formatText("/{}", i));
  }
}

TEST_F(HTTPSessionTest, LeaksNeitherDescriptorsNorMemory) {
  std::atomic<int> served = 0;
  const ScriptedServer server(
      [&](const ScriptedPeer& peer) {
        (void)peer.receiveRequest();
        if (++served % 2 == 0) peer.send("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok");
      },
      2);
  (void)outcome({.url = server.url()});
  const auto before = test::openDescriptors();
  const auto allocated = ::mallinfo2().uordblks;
  for (int i = 0; i < 2000; ++i) (void)outcome({.url = server.url()});
  EXPECT_TRUE(eventually([&] { return test::openDescriptors() <= before; }))
      << test::openDescriptors() << " instead of " << before;
  // Waits until the reactor has finished the last exchange.
  reactor_.run([] {});
  EXPECT_LT(::mallinfo2().uordblks, allocated + (1UL << 20));
}

TEST_F(HTTPSessionTest, DoesNotLeakSocketsToChildren) {
  const ScriptedServer server([](const ScriptedPeer& peer) { peer.waitUntilLeft(); });
  const AnswerRecorder recorder;
  auto task = HTTPSession(reactor_, {}).send({.url = server.url()}, recorder.done());
  ASSERT_TRUE(eventually([&] { return !server.clientDescriptors().empty(); }));
  for (const int descriptor : server.clientDescriptors())
    EXPECT_NE(::fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0);
}

}  // namespace
}  // namespace zephyl

#include <atomic>
#include <fstream>
#include <future>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include "HTTPRecorders.hpp"
#include "ScriptedServer.hpp"
#include "Support/Eventually.hpp"
#include "System/Concurrency/Reactor.hpp"
#include "System/Data/Format.hpp"
#include "System/Network/HTTPSession.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;
using test::ScriptedPeer;
using test::ScriptedServer;
using test::StreamRecorder;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr auto chunkedHead = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
constexpr auto streamHead = "HTTP/1.1 200 OK\r\n\r\n";

std::string chunk(std::string_view bytes) {
  return formatText("{:x}\r\n{}\r\n", bytes.size(), bytes);
}

std::size_t residentBytes() {
  std::ifstream statm("/proc/self/statm");
  std::size_t total = 0;
  std::size_t resident = 0;
  statm >> total >> resident;
  return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

class HTTPStreamTest : public testing::Test {
 protected:
  HTTPTask open(const ScriptedServer& server, const StreamHandlers& handlers,
                const HTTPSession::Configuration& limits = {}) {
    return HTTPSession(reactor_, limits).stream({.url = server.url(), .timeout = 0s}, handlers);
  }

  /// Returns the record of a stream from a server with this script.
  StreamRecorder::Record record(ScriptedServer::Script script,
                                const HTTPSession::Configuration& limits = {}) {
    const ScriptedServer server(std::move(script));
    const StreamRecorder recorder;
    const auto task = open(server, recorder.handlers(), limits);
    return recorder.wait();
  }

  StreamRecorder::Record recordOf(const std::string& answer,
                                  const HTTPSession::Configuration& limits = {}) {
    return record(
        [&](const ScriptedPeer& peer) {
          (void)peer.receiveRequest();
          peer.send(answer);
        },
        limits);
  }

  Reactor reactor_;
};

TEST_F(HTTPStreamTest, DeliversStatusLinesAndEnd) {
  const auto record = recordOf(formatText("{}data: 1\r\n\r\n: note\ndata: 2", streamHead));
  EXPECT_THAT(record.statuses, ElementsAre(200));
  EXPECT_THAT(record.lines, ElementsAre("data: 1", "", ": note", "data: 2"));
  EXPECT_THAT(record.ends, ElementsAre(std::nullopt));
}

TEST_F(HTTPStreamTest, JoinsLinesAcrossChunks) {
  const auto record = recordOf(chunkedHead + chunk("one\ntw") + chunk("o\r") + chunk("\nn\xc3") +
                               chunk("\xa4her\n\nlast") + "0\r\n\r\n");
  EXPECT_THAT(record.lines, ElementsAre("one", "two", "näher", "", "last"));
  EXPECT_THAT(record.ends, ElementsAre(std::nullopt));
}

TEST_F(HTTPStreamTest, ReadsAStreamByteByByte) {
  for (const auto& text :
       {streamHead + std::string("näher\r\nzwei\n\nrest"),
        chunkedHead + chunk("näher\r\nzw") + chunk("ei\n\nrest") + "0\r\n\r\n"}) {
    const auto record = this->record([&](const ScriptedPeer& peer) {
      (void)peer.receiveRequest();
      peer.sendInSingleBytes(text);
    });
    EXPECT_THAT(record.lines, ElementsAre("näher", "zwei", "", "rest"));
    EXPECT_THAT(record.ends, ElementsAre(std::nullopt));
  }
}

TEST_F(HTTPStreamTest, DeliversALineAtOnce) {
  const ScriptedServer server([](const ScriptedPeer& peer) {
    (void)peer.receiveRequest();
    peer.send(streamHead + std::string("first\nsec"));
    peer.waitUntilLeft();
  });
  const StreamRecorder recorder;
  const auto task = open(server, recorder.handlers());
  EXPECT_THAT(recorder.waitForLines(1).lines, ElementsAre("first"));
  EXPECT_THAT(recorder.now().ends, IsEmpty());
}

TEST_F(HTTPStreamTest, EndsWhenTheStatusIsNotWanted) {
  const ScriptedServer server([](const ScriptedPeer& peer) {
    (void)peer.receiveRequest();
    peer.send("HTTP/1.1 500 Oops\r\nContent-Length: 100\r\n\r\nerror\n");
    peer.waitUntilLeft();
  });
  const StreamRecorder recorder;
  const auto task = open(server, recorder.handlers(false));
  const auto record = recorder.wait();
  EXPECT_THAT(record.statuses, ElementsAre(500));
  EXPECT_THAT(record.lines, IsEmpty());
  EXPECT_THAT(record.ends, ElementsAre(std::nullopt));
}

TEST_F(HTTPStreamTest, ReportsAStreamThatBreaksOff) {
  const auto record = recordOf(chunkedHead + chunk("one\ntw"));
  EXPECT_THAT(record.lines, ElementsAre("one"));
  ASSERT_EQ(record.ends.size(), 1U);
  EXPECT_TRUE(
      record.ends[0]->message.ends_with("closed the connection before the end of its answer"));
}

TEST_F(HTTPStreamTest, ReportsAnInvalidAnswer) {
  const auto record = recordOf("garbage\r\n");
  EXPECT_THAT(record.statuses, IsEmpty());
  EXPECT_THAT(record.ends, ElementsAre(Error{"no response"}));
}

TEST_F(HTTPStreamTest, ReportsAServerThatRefuses) {
  const test::RefusingPort port;
  const StreamRecorder recorder;
  const auto task =
      HTTPSession(reactor_, {}).stream({.url = "http://" + port.authority()}, recorder.handlers());
  Error expected{"could not connect to ", port.authority(), ": Connection refused"};
  expected.nothingSent = true;
  EXPECT_THAT(recorder.wait().ends, ElementsAre(expected));
}

TEST_F(HTTPStreamTest, ReportsAServerThatFallsSilent) {
  const ScriptedServer server([](const ScriptedPeer& peer) {
    (void)peer.receiveRequest();
    peer.send(chunkedHead + chunk("one\n"));
    peer.waitUntilLeft();
  });
  const StreamRecorder recorder;
  const auto task = open(server, recorder.handlers(), {.requestTimeout = 500ms});
  const auto record = recorder.wait();
  EXPECT_THAT(record.lines, ElementsAre("one"));
  EXPECT_THAT(record.ends, ElementsAre(Error{"timed out waiting for ", server.authority()}));
}

TEST_F(HTTPStreamTest, EndsAtItsTotalTimeOutWhenItHasOne) {
  const ScriptedServer server([](const ScriptedPeer& peer) {
    (void)peer.receiveRequest();
    peer.send(streamHead);
    while (!peer.isLeftWithin(5ms)) peer.send("tick\n");
  });
  const StreamRecorder recorder;
  const auto task = HTTPSession(reactor_, {})
                        .stream({.url = server.url(), .timeout = 500ms}, recorder.handlers());
  const auto record = recorder.wait();
  EXPECT_FALSE(record.lines.empty());
  EXPECT_THAT(record.ends,
              ElementsAre(Error{"timed out: ", server.authority(), " did not finish in time"}));
}

TEST_F(HTTPStreamTest, KeepsUpWithManyLines) {
  constexpr std::size_t count = 100'000;
  const auto start = std::chrono::steady_clock::now();
  const auto record = this->record([](const ScriptedPeer& peer) {
    (void)peer.receiveRequest();
    peer.send(chunkedHead);
    for (std::size_t i = 0; i < count; i += 100) {
      std::string lines;
      for (std::size_t j = i; j < i + 100; ++j) lines += formatText("data: {}\n", j);
      peer.send(chunk(lines));
    }
    peer.send("0\r\n\r\n");
  });
  EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);  // 10,000 lines a second
  ASSERT_EQ(record.lines.size(), count);
  for (std::size_t i = 0; i < count; ++i) ASSERT_EQ(record.lines[i], formatText("data: {}", i));
}

TEST_F(HTTPStreamTest, SkipsAnOverlongLineAndContinues) {
  const auto record =
      recordOf(formatText("{}12345\n123456\n{}\r\nok\n", streamHead, std::string(100'000, 'x')),
               {.maxLineBytes = 5});
  EXPECT_THAT(record.lines, ElementsAre("12345", "ok"));
  EXPECT_THAT(record.ends, ElementsAre(std::nullopt));
}

TEST_F(HTTPStreamTest, UsesBoundedMemory) {
  constexpr std::size_t hundredMegabytes = 100'000'000;
  const auto before = residentBytes();
  std::size_t largest = 0;
  std::size_t lines = 0;
  const ScriptedServer server([](const ScriptedPeer& peer) {
    (void)peer.receiveRequest();
    peer.send(streamHead);
    const std::string half(1UL << 18, 'x');
    for (std::size_t sent = 0; sent < hundredMegabytes / 2; sent += half.size()) peer.send(half);
    peer.send("\n");
    const auto line = std::string(1000, 'y') + "\n";
    for (std::size_t sent = 0; sent < hundredMegabytes / 2; sent += line.size()) peer.send(line);
  });
  std::promise<std::optional<Error>> ended;
  const auto task = open(server,
                         {.onStatus = [](int) { return true; },
                          .onLine =
                              [&](std::string_view) {
                                if (++lines % 1000 == 1)
                                  largest = std::max(largest, residentBytes());
                              },
                          .onEnd = [&](const auto& error) { ended.set_value(error); }},
                         {.maxLineBytes = 1UL << 16});
  EXPECT_EQ(ended.get_future().get(), std::nullopt);
  EXPECT_EQ(lines, (hundredMegabytes / 2 + 1000) / 1001);
  EXPECT_LT(largest, before + (24UL << 20));
}

TEST_F(HTTPStreamTest, LetsOtherExchangesRunWhileItIsBusy) {
  const ScriptedServer busy([](const ScriptedPeer& peer) {
    (void)peer.receiveRequest();
    peer.send(streamHead);
    const std::string lines = std::string(1UL << 16, '\n');
    while (peer.send(lines)) continue;
  });
  const ScriptedServer other([](const ScriptedPeer& peer) {
    (void)peer.receiveRequest();
    peer.send("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok");
  });
  std::atomic<std::size_t> lines = 0;
  auto task = open(busy, {.onStatus = [](int) { return true; },
                          .onLine = [&](std::string_view) { ++lines; },
                          .onEnd = [](const auto&) {}});
  for (int i = 0; i < 100; ++i) {
    const auto before = lines.load();
    const test::AnswerRecorder recorder;
    const auto request = HTTPSession(reactor_, {}).send({.url = other.url()}, recorder.done());
    EXPECT_TRUE(recorder.wait());
    EXPECT_TRUE(test::eventually([&] { return lines > before; }));
  }
  task.cancel();
  reactor_.run([] {});
}

}  // namespace
}  // namespace zephyl

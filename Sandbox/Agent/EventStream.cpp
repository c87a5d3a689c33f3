#include "Agent/EventStream.hpp"

#include <utility>

#include <boost/asio/buffer.hpp>
#include <boost/asio/write.hpp>
#include <fmt/format.h>

namespace zephyl::sandbox {
namespace asio = boost::asio;
using namespace std::chrono_literals;
using std::chrono::steady_clock;
namespace {

constexpr auto leastInterval = 100ms;
constexpr auto writePatience = 10s;

std::string head(bool chunked) {
  return fmt::format(
      "HTTP/1.{} 200 OK\r\n"
      "Content-Type: text/event-stream\r\n"
      "Cache-Control: no-store\r\n"
      "Connection: close\r\n"
      "{}\r\n",
      chunked ? 1 : 0, chunked ? "Transfer-Encoding: chunked\r\n" : "");
}

}  // namespace

EventStream::EventStream(boost::beast::tcp_stream stream, Agent& agent,
                         std::chrono::milliseconds keepAlive, std::function<void()> onEnd)
    : stream_(std::move(stream)),
      agent_(agent),
      keepAlive_(keepAlive),
      onEnd_(std::move(onEnd)),
      timer_(stream_.get_executor()) {}

void EventStream::start(unsigned version) {
  chunked_ = version >= 11;
  listening_ = agent_.changed().listen([this] { proceed(); });
  watchClient();
  write(head(chunked_));
}

void EventStream::stop() {
  stopping_ = true;
  proceed();
}

void EventStream::proceed() {
  if (ended_ || !writing_.empty()) return;
  if (stopping_) {
    // Without chunks the end of the connection is the end of the stream.
    if (chunked_ && !std::exchange(lastChunkSaid_, true)) {
      write("0\r\n\r\n");
    } else {
      end();
    }
    return;
  }
  const auto activity = agent_.activity();
  const bool news = activity != sent_;
  const auto due = lastSaid_ + (news ? leastInterval : keepAlive_);
  if (steady_clock::now() < due) {
    wakeAt(due);
    return;
  }
  sent_ = activity;
  lastSaid_ = steady_clock::now();
  say(news ? fmt::format("data: {}\n\n", *activity) : ":\n\n");
}

void EventStream::say(std::string text) {
  write(chunked_ ? fmt::format("{:x}\r\n{}\r\n", text.size(), text) : std::move(text));
}

void EventStream::write(std::string bytes) {
  writing_ = std::move(bytes);
  stream_.expires_after(writePatience);
  asio::async_write(stream_, asio::buffer(writing_),
                    [self = shared_from_this()](boost::system::error_code error, std::size_t) {
                      self->onWritten(error);
                    });
}

void EventStream::onWritten(boost::system::error_code error) {
  writing_.clear();
  stream_.expires_never();
  if (error) {
    end();
  } else {
    proceed();
  }
}

void EventStream::wakeAt(steady_clock::time_point time) {
  timer_.expires_at(time);
  timer_.async_wait([self = shared_from_this()](boost::system::error_code error) {
    if (!error) self->proceed();
  });
}

/// What the client still says is of no interest, only that it closes its side.
void EventStream::watchClient() {
  stream_.socket().async_read_some(
      asio::buffer(ignored_),
      [self = shared_from_this()](boost::system::error_code error, std::size_t) {
        if (error) {
          self->end();
        } else {
          self->watchClient();
        }
      });
}

void EventStream::end() {
  if (std::exchange(ended_, true)) return;
  listening_.reset();
  timer_.cancel();
  stream_.close();
  onEnd_();
}

}  // namespace zephyl::sandbox

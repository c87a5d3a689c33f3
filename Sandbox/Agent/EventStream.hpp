#pragma once

#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/tcp_stream.hpp>

#include "Agent/Agent.hpp"
#include "Agent/Signal.hpp"

namespace zephyl::sandbox {

/// The agent's activity as a stream of events to one client: a "data: " line at once and after each
/// change, at least 100 ms apart, and a comment line after each silence of `keepAlive`. A change
/// that comes while another is being written or is too recent is not lost: the latest activity is
/// written next. The client may go at any time; one that takes nothing for 10 s is dropped.
class EventStream : public std::enable_shared_from_this<EventStream> {
 public:
  /// `onEnd` is called once, when the stream is over.
  EventStream(boost::beast::tcp_stream stream, Agent& agent, std::chrono::milliseconds keepAlive,
              std::function<void()> onEnd);

  /// The version is that of the request, 10 or 11: with 11 the stream is chunked.
  void start(unsigned version);

  /// Ends the stream in order once the present event is out.
  void stop();

 private:
  /// Does what is due: an event, a comment, the end, or waiting for the next of these.
  void proceed();
  void say(std::string text);
  void write(std::string bytes);
  void onWritten(boost::system::error_code error);
  void wakeAt(std::chrono::steady_clock::time_point time);
  void watchClient();
  void end();

  boost::beast::tcp_stream stream_;
  Agent& agent_;
  std::chrono::milliseconds keepAlive_;
  std::function<void()> onEnd_;
  boost::asio::steady_timer timer_;
  Signal::Handle listening_;
  std::array<char, 512> ignored_{};

  bool chunked_ = false;
  bool stopping_ = false;
  bool lastChunkSaid_ = false;
  bool ended_ = false;
  /// What is being written; empty when nothing is.
  std::string writing_;
  std::shared_ptr<const std::string> sent_;
  std::chrono::steady_clock::time_point lastSaid_{};
};

}  // namespace zephyl::sandbox

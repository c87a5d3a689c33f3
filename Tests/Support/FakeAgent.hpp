#pragma once

#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "System/Files/FileDescriptor.hpp"

namespace zephyl::test {

/// An HTTP server that imitates the agent, on a free loopback port in this process. It has canned
/// answers, an event stream that the test writes to, and a record of the requests. Requests without
/// an answer get 404.
class FakeAgent {
 public:
  struct Request {
    std::string method;
    std::string path;
    std::string contentType;
    std::string body;
  };

  FakeAgent();
  ~FakeAgent();
  FakeAgent(const FakeAgent&) = delete;
  FakeAgent& operator=(const FakeAgent&) = delete;

  [[nodiscard]] int port() const { return port_; }
  [[nodiscard]] std::string base() const;

  /// `call` is a method and a path, "GET /api/status".
  void answer(const std::string& call, int status, const std::string& body);
  /// Stops answering this call.
  void hang(const std::string& call);
  /// Answers status, roots and activity like a healthy agent.
  void answerHealthily(const std::string& roots = "[]");

  [[nodiscard]] std::vector<Request> requests() const;
  [[nodiscard]] std::size_t requestCount(const std::string& call) const;

  /// Status of the answer to GET /api/events; 200 keeps the stream open.
  void setStreamStatus(int status);
  [[nodiscard]] std::size_t openStreams() const;
  /// Refuses new connections, and keeps the open ones.
  void stopListening();
  void listenAgain();
  /// Writes raw bytes to every open stream.
  void writeToStreams(const std::string& bytes);
  void endStreams();

 private:
  struct Answer {
    int status = 404;
    std::string body = "{}";
    bool hangs = false;
  };

  void listen(int port);
  void acceptConnections();
  void serve(int connection);
  void serveStream(int connection);
  void serveAnswer(int connection, const Answer& answer);

  FileDescriptor listener_;
  int port_ = 0;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::map<std::string, Answer> answers_;
  std::vector<Request> requests_;
  std::vector<int> streams_;
  std::vector<int> connections_;
  int streamStatus_ = 200;
  bool closing_ = false;
  std::vector<std::thread> servers_;
  std::thread acceptor_;
};

/// Returns the smallest valid activity record.
std::string activityJSON(bool busy, const std::string& more = "");

}  // namespace zephyl::test

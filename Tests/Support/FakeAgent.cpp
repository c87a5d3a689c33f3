#include "Support/FakeAgent.hpp"

#include <algorithm>
#include <sstream>
#include <stdexcept>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace zephyl::test {

namespace {

/// Reads a request with its head and body. Returns nullopt if the peer disconnects before its end.
std::optional<FakeAgent::Request> readRequest(int connection) {
  std::string text;
  std::size_t head = std::string::npos;
  std::size_t length = 0;
  char buffer[4096];
  while (head == std::string::npos || text.size() < head + 4 + length) {
    const ssize_t got = ::recv(connection, buffer, sizeof buffer, 0);
    if (got <= 0) return std::nullopt;
    text.append(buffer, static_cast<std::size_t>(got));
    head = text.find("\r\n\r\n");
    const auto field = text.find("Content-Length: ");
    if (head != std::string::npos && field < head) length = std::stoul(text.substr(field + 16));
  }
  FakeAgent::Request request;
  std::istringstream(text) >> request.method >> request.path;
  const auto type = text.find("Content-Type: ");
  if (type < head) request.contentType = text.substr(type + 14, text.find('\r', type) - type - 14);
  request.body = text.substr(head + 4);
  return request;
}

bool writeAll(int connection, const std::string& bytes) {
  return ::send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
         static_cast<ssize_t>(bytes.size());
}

}  // namespace

FakeAgent::FakeAgent() {
  listen(0);
}

/// Listens on the port, or on a free one if it is 0.
void FakeAgent::listen(int port) {
  listener_ = FileDescriptor(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const int enabled = 1;
  ::setsockopt(listener_.get(), SOL_SOCKET, SO_REUSEADDR, &enabled, sizeof enabled);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  if (::bind(listener_.get(), generic, size) != 0 || ::listen(listener_.get(), 64) != 0 ||
      ::getsockname(listener_.get(), generic, &size) != 0) {
    throw std::runtime_error("no loopback port");
  }
  port_ = ntohs(address.sin_port);
  acceptor_ = std::thread([this] { acceptConnections(); });
}

FakeAgent::~FakeAgent() {
  {
    const std::scoped_lock lock(mutex_);
    closing_ = true;
    ::shutdown(listener_.get(), SHUT_RDWR);
    for (const int connection : connections_) ::shutdown(connection, SHUT_RDWR);
  }
  changed_.notify_all();
  acceptor_.join();
  for (auto& server : servers_) server.join();
}

std::string FakeAgent::base() const {
  return "http://127.0.0.1:" + std::to_string(port_);
}

void FakeAgent::answer(const std::string& call, int status, const std::string& body) {
  const std::scoped_lock lock(mutex_);
  answers_[call] = {status, body, false};
}

void FakeAgent::hang(const std::string& call) {
  const std::scoped_lock lock(mutex_);
  answers_[call].hangs = true;
}

void FakeAgent::answerHealthily(const std::string& roots) {
  answer("GET /api/status", 200, R"({"state":"connected"})");
  answer("GET /api/roots", 200, R"({"roots":)" + roots + "}");
  answer("GET /api/activity", 200, activityJSON(false));
}

std::vector<FakeAgent::Request> FakeAgent::requests() const {
  const std::scoped_lock lock(mutex_);
  return requests_;
}

std::size_t FakeAgent::requestCount(const std::string& call) const {
  const std::scoped_lock lock(mutex_);
  return static_cast<std::size_t>(std::ranges::count_if(requests_, [&](const Request& request) {
    return request.method + " " + request.path == call;
  }));
}

void FakeAgent::setStreamStatus(int status) {
  const std::scoped_lock lock(mutex_);
  streamStatus_ = status;
}

void FakeAgent::stopListening() {
  ::shutdown(listener_.get(), SHUT_RDWR);
  acceptor_.join();
  listener_.reset();
}

void FakeAgent::listenAgain() {
  listen(port_);
}

std::size_t FakeAgent::openStreams() const {
  const std::scoped_lock lock(mutex_);
  return streams_.size();
}

void FakeAgent::writeToStreams(const std::string& bytes) {
  const std::scoped_lock lock(mutex_);
  for (const int stream : streams_) writeAll(stream, bytes);
}

void FakeAgent::endStreams() {
  const std::scoped_lock lock(mutex_);
  for (const int stream : streams_) ::shutdown(stream, SHUT_RDWR);
}

void FakeAgent::acceptConnections() {
  for (;;) {
    const int connection = ::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC);
    const std::scoped_lock lock(mutex_);
    if (connection < 0 || closing_) {
      if (connection >= 0) ::close(connection);
      return;
    }
    connections_.push_back(connection);
    servers_.emplace_back([this, connection] {
      serve(connection);
      const std::scoped_lock ended(mutex_);
      std::erase(connections_, connection);
      ::close(connection);
    });
  }
}

void FakeAgent::serve(int connection) {
  const auto request = readRequest(connection);
  if (!request) return;
  Answer answer;
  {
    const std::scoped_lock lock(mutex_);
    requests_.push_back(*request);
    const auto known = answers_.find(request->method + " " + request->path);
    if (known != answers_.end()) answer = known->second;
  }
  if (request->path == "/api/events") return serveStream(connection);
  serveAnswer(connection, answer);
}

void FakeAgent::serveStream(int connection) {
  {
    const std::scoped_lock lock(mutex_);
    writeAll(connection, "HTTP/1.1 " + std::to_string(streamStatus_) +
                             " X\r\nContent-Type: text/event-stream\r\n\r\n");
    if (streamStatus_ != 200) return;
    streams_.push_back(connection);
  }
  char ignored = 0;
  while (::recv(connection, &ignored, 1, 0) > 0) {
  }
  const std::scoped_lock lock(mutex_);
  std::erase(streams_, connection);
}

void FakeAgent::serveAnswer(int connection, const Answer& answer) {
  if (answer.hangs) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return closing_; });
    return;
  }
  writeAll(connection, "HTTP/1.1 " + std::to_string(answer.status) +
                           " X\r\nContent-Length: " + std::to_string(answer.body.size()) +
                           "\r\nConnection: close\r\n\r\n" + answer.body);
}

std::string activityJSON(bool busy, const std::string& more) {
  return std::string(R"({"busy":)") + (busy ? "true" : "false") +
         R"(,"inFlight":0,"counters":{},"recent":[],"indexing":[])" + more + "}";
}

}  // namespace zephyl::test

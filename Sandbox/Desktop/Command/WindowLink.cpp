#include "Desktop/Command/WindowLink.hpp"

#include <boost/asio/io_context.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/write.hpp>

#include "Common/LocalSocket.hpp"
#include "Desktop/Window/Messages.hpp"

namespace zephyl::sandbox::desktop {
namespace asio = boost::asio;
using boost::system::error_code;
namespace {

/// One connection to the window.
class Connection {
 public:
  Result<void> open(const std::string& path, const Command& command) {
    const auto endpoint = localEndpoint(path);
    if (!endpoint) return endpoint.error();
    error_code error;
    socket_.connect(*endpoint, error);
    if (error) return Error{"no window accepts commands at ", path, ": ", error.message()};
    asio::write(socket_, asio::buffer(json::compact(json::encode(command)) + '\n'), error);
    if (error) return Error{"the window does not read: ", error.message()};
    return {};
  }

  /// Waits for the next reply. A reply with "error" is an error.
  Result<Reply> reply() {
    error_code error;
    const auto size =
        asio::read_until(socket_, asio::dynamic_buffer(received_, maxReplyBytes), '\n', error);
    if (error) return Error{"the window has ended: ", error.message()};
    auto reply = json::decodeText<Reply>(std::string_view(received_).substr(0, size));
    received_.erase(0, size);
    if (!reply) return Error{"the window's answer is invalid"};
    if (reply->error) return Error{*reply->error};
    return reply;
  }

 private:
  asio::io_context io_;
  LocalProtocol::socket socket_{io_};
  std::string received_;
};

}  // namespace

Result<Answer> WindowLink::ask(const Request& request) const {
  Connection connection;
  const auto opened = connection.open(
      path_, {.method = request.method, .path = request.path, .body = request.body});
  if (!opened) return opened.error();
  const auto reply = connection.reply();
  if (!reply) return reply.error();
  if (!reply->status || !reply->body) return Error{"the window's answer is incomplete"};
  return Answer{.status = static_cast<int>(*reply->status), .body = *reply->body};
}

Error WindowLink::watch(const std::function<void(const std::string&)>& onRoute) const {
  Connection connection;
  const auto opened = connection.open(path_, {.watch = "requests"});
  if (!opened) return opened.error();
  for (;;) {
    const auto reply = connection.reply();
    if (!reply) return reply.error();
    if (!reply->request) return Error{"the window's answer is incomplete"};
    onRoute(*reply->request);
  }
}

}  // namespace zephyl::sandbox::desktop

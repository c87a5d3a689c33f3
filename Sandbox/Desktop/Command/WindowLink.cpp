#include "Desktop/Command/WindowLink.hpp"

#include <optional>
#include <utility>

#include <boost/asio/io_context.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/write.hpp>

#include "Common/LocalSocket.hpp"

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
    if (error) return Failure{"no window takes commands at ", path, ": ", error.message()};
    asio::write(socket_, asio::buffer(toLine(command) + '\n'), error);
    if (error) return Failure{"the window does not listen: ", error.message()};
    return {};
  }

  /// Waits for the next line.
  Result<std::string> line() {
    error_code error;
    const auto size =
        asio::read_until(socket_, asio::dynamic_buffer(received_, mostAnswerBytes), '\n', error);
    if (error) return Failure{"the window has ended: ", error.message()};
    auto line = received_.substr(0, size - 1);
    received_.erase(0, size);
    return line;
  }

 private:
  asio::io_context io_;
  LocalProtocol::socket socket_{io_};
  std::string received_;
};

}  // namespace

Result<Answer> WindowLink::ask(const Request& request) const {
  Connection connection;
  if (const auto opened = connection.open(path_, request); !opened) return opened.error();
  const auto line = connection.line();
  if (!line) return line.error();
  return parseAnswer(*line);
}

Failure WindowLink::watch(const std::function<void(const std::string&)>& onRoute) const {
  Connection connection;
  if (const auto opened = connection.open(path_, Watch{}); !opened) return opened.error();
  for (;;) {
    const auto line = connection.line();
    if (!line) return line.error();
    const auto route = parseRoute(*line);
    if (!route) return route.error();
    onRoute(*route);
  }
}

}  // namespace zephyl::sandbox::desktop

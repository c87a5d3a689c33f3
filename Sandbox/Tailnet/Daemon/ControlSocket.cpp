#include "Tailnet/Daemon/ControlSocket.hpp"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

#include <boost/asio/io_context.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/write.hpp>
#include <fmt/format.h>

#include <sys/stat.h>
#include <unistd.h>

#include "Tailnet/Common/Async.hpp"

namespace zephyl::sandbox {
namespace asio = boost::asio;
using boost::system::error_code;
using namespace std::chrono_literals;
namespace {

constexpr auto patience = 10s;

/// Everything made while it lives is for the user alone: a socket has no other way to be so from
/// its first moment on.
class PrivateFiles {
 public:
  PrivateFiles() : previous_(::umask(S_IXUSR | S_IRWXG | S_IRWXO)) {}
  ~PrivateFiles() { ::umask(previous_); }
  PrivateFiles(const PrivateFiles&) = delete;
  PrivateFiles& operator=(const PrivateFiles&) = delete;

 private:
  mode_t previous_;
};

error_code tryToConnect(const control::Protocol::endpoint& endpoint) {
  asio::io_context io;
  control::Protocol::socket socket(io);
  error_code error;
  socket.open(endpoint.protocol(), error);
  // Not to wait for a daemon whose queue of clients is full: it is alive.
  if (!error) socket.native_non_blocking(true, error);
  if (!error && ::connect(socket.native_handle(), endpoint.data(),
                          static_cast<socklen_t>(endpoint.size())) != 0) {
    error.assign(errno, boost::system::system_category());
  }
  return error;
}

Result<void> removeStaleSocket(const control::Protocol::endpoint& endpoint) {
  const auto path = endpoint.path();
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return {};
  if (!S_ISSOCK(status.st_mode)) {
    return Failure{fmt::format("{} is there already and no socket; it stays", path)};
  }
  const auto error = tryToConnect(endpoint);
  if (!error || error == asio::error::would_block) {
    return Failure{fmt::format("another daemon listens on {}", path)};
  }
  if (error != asio::error::connection_refused || ::unlink(path.c_str()) != 0) {
    return Failure{fmt::format("cannot tell whether {} is still in use", path)};
  }
  return {};
}

}  // namespace

SocketFile::SocketFile(std::string path) : path_(std::move(path)) {
  struct stat status {};
  if (::lstat(path_.c_str(), &status) != 0) return;
  device_ = status.st_dev;
  inode_ = status.st_ino;
}

SocketFile::~SocketFile() {
  struct stat status {};
  const bool isThere = !path_.empty() && ::lstat(path_.c_str(), &status) == 0;
  if (isThere && status.st_dev == device_ && status.st_ino == inode_) ::unlink(path_.c_str());
}

SocketFile::SocketFile(SocketFile&& other) noexcept
    : path_(std::exchange(other.path_, {})), device_(other.device_), inode_(other.inode_) {}

Result<ControlSocket> openControlSocket(const asio::any_io_executor& executor,
                                        const std::string& path) {
  const auto endpoint = control::endpointAt(path);
  if (!endpoint) return endpoint.error();
  if (const auto removed = removeStaleSocket(*endpoint); !removed) return removed.error();

  control::Protocol::acceptor acceptor(executor);
  error_code error;
  acceptor.open(endpoint->protocol(), error);
  if (!error) {
    const PrivateFiles guard;
    acceptor.bind(*endpoint, error);
  }
  if (error) return Failure{fmt::format("cannot listen on {}: {}", path, error.message())};
  SocketFile file(path);
  acceptor.listen(asio::socket_base::max_listen_connections, error);
  if (error) return Failure{fmt::format("cannot listen on {}: {}", path, error.message())};
  return ControlSocket{std::move(acceptor), std::move(file)};
}

asio::awaitable<void> serveControl(control::Protocol::socket socket, control::Status status) {
  control::Stream stream(std::move(socket));
  std::string received;
  for (;;) {
    stream.expires_after(patience);
    const auto [readError, size] = co_await asio::async_read_until(
        stream, asio::dynamic_buffer(received, control::mostLineBytes), '\n', asTuple);
    if (readError) break;
    const auto line =
        control::answer(std::string_view(received).substr(0, size - 1), status) + '\n';
    received.erase(0, size);
    const auto [writeError, written] =
        co_await asio::async_write(stream, asio::buffer(line), asTuple);
    if (writeError) break;
  }
  co_await sayFarewell(stream);
}

}  // namespace zephyl::sandbox

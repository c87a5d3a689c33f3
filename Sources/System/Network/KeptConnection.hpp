#pragma once

#include <memory>
#include <optional>
#include <string>

#include <boost/asio/ip/tcp.hpp>

namespace zephyl {

/// Keeps at most one connection open between two exchanges, so that the next exchange need not
/// connect. Closes the connection as soon as the server ends it or sends unrequested bytes.
///
/// Owned by a `shared_ptr`. Reactor's thread only, except for construction and destruction.
class KeptConnection : public std::enable_shared_from_this<KeptConnection> {
 public:
  using Socket = boost::asio::ip::tcp::socket;

  /// Keeps a connection to `authority` whose answers have all been read to their end. Closes the
  /// previously kept connection.
  void keep(std::string authority, Socket socket);
  /// Returns the connection to `authority` and keeps it no longer. Returns nullopt if there is no
  /// such connection. The server may end the connection at the same moment.
  [[nodiscard]] std::optional<Socket> release(const std::string& authority);

 private:
  void closeWhenReadable();

  std::string authority_;
  std::optional<Socket> socket_;
  unsigned generation_ = 0;  ///< increases with each change of `socket_`
};

}  // namespace zephyl

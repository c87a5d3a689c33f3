#pragma once

#include <memory>
#include <optional>
#include <string>

#include <boost/asio/ip/tcp.hpp>

namespace zephyl {

/// A connection that stays open between two exchanges, so that the next one need not connect. Holds
/// at most one. Closes it as soon as the server ends it or sends something that nobody asked for.
///
/// Owned by a `shared_ptr`. Reactor's thread only, except for construction and destruction.
class KeptConnection : public std::enable_shared_from_this<KeptConnection> {
 public:
  using Socket = boost::asio::ip::tcp::socket;

  /// Takes over a connection to `authority` on which every answer was read to its end. Closes the
  /// one that was kept before.
  void keep(std::string authority, Socket socket);
  /// Hands over the connection to `authority`. Returns nullopt if none is kept. The server may end
  /// the connection at the same moment.
  [[nodiscard]] std::optional<Socket> take(const std::string& authority);

 private:
  void closeWhenReadable();

  std::string authority_;
  std::optional<Socket> socket_;
  unsigned generation_ = 0;  ///< increases with each change of `socket_`
};

}  // namespace zephyl

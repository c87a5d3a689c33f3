#include "System/Network/KeptConnection.hpp"

#include <utility>

namespace zephyl {

void KeptConnection::keep(std::string authority, Socket socket) {
  ++generation_;
  authority_ = std::move(authority);
  socket_.emplace(std::move(socket));
  closeWhenReadable();
}

std::optional<KeptConnection::Socket> KeptConnection::release(const std::string& authority) {
  if (!socket_ || authority_ != authority) return std::nullopt;
  ++generation_;
  auto socket = std::exchange(socket_, std::nullopt);
  boost::system::error_code ignored;
  socket->cancel(ignored);
  return socket;
}

void KeptConnection::closeWhenReadable() {
  socket_->async_wait(Socket::wait_read, [weak = weak_from_this(), generation = generation_](auto) {
    const auto self = weak.lock();
    if (self && self->generation_ == generation) self->socket_.reset();
  });
}

}  // namespace zephyl

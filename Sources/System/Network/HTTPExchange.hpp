#pragma once

#include <memory>
#include <optional>
#include <string_view>

#include "System/Network/HTTPSession.hpp"

namespace zephyl {

class KeptConnection;

/// Receives one answer piece by piece on the reactor's thread, and calls the caller's callbacks: at
/// most one per call, because the exchange may be cancelled between two of them.
class HTTPReceiver {
 public:
  virtual ~HTTPReceiver() = default;
  HTTPReceiver() = default;
  HTTPReceiver(const HTTPReceiver&) = delete;
  HTTPReceiver& operator=(const HTTPReceiver&) = delete;

  /// Returns whether the body is wanted.
  virtual bool receiveStatus(int status) = 0;
  /// Removes at least one byte from the front of `bytes`.
  virtual void receiveBody(std::string_view& bytes) = 0;
  /// Called when the whole body has arrived.
  virtual void finishBody() {}
  /// Called once at the end of the exchange. `error` is nullopt on success.
  virtual void end(std::optional<Error> error) = 0;
};

/// The limits of an exchange.
struct HTTPLimits {
  Duration silence{};  ///< while connecting and between two pieces; zero: no limit
  Duration whole{};    ///< for the whole exchange; zero: no limit
  std::optional<std::size_t> bodyBytes;  ///< of the answer; nullopt: no limit
};

/// Starts an exchange on a new connection, which `check` must accept. The exchange lives on the
/// reactor until its end. The returned handle can only cancel it. The receiver is destroyed on the
/// reactor's thread.
///
/// If `kept` is not null, uses its connection, which has passed the check before, and returns it
/// there after the answer unless the server ends it. A kept connection that ends before anything
/// was received is replaced by a new one and the request sent again, so `request` must be one that
/// may be carried out twice.
std::shared_ptr<HTTPTask::Exchange> startExchange(Reactor& reactor, ClientRequest request,
                                                  const HTTPLimits& limits, ConnectionCheck check,
                                                  std::unique_ptr<HTTPReceiver> receiver,
                                                  std::shared_ptr<KeptConnection> kept = nullptr);

}  // namespace zephyl

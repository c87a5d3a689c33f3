#pragma once

#include <memory>
#include <optional>
#include <string_view>

#include "System/Network/HTTPSession.hpp"

namespace zephyl {

class KeptConnection;

/// Takes in one answer as it arrives, on the reactor's thread, and makes the caller's callbacks of
/// it: at most one per call, because the exchange may be cancelled between two of them.
class HTTPReceiver {
 public:
  virtual ~HTTPReceiver() = default;
  HTTPReceiver() = default;
  HTTPReceiver(const HTTPReceiver&) = delete;
  HTTPReceiver& operator=(const HTTPReceiver&) = delete;

  /// False when the body is not wanted.
  virtual bool receiveStatus(int status) = 0;
  /// Takes at least one byte of the body off the front of `bytes`.
  virtual void receiveBody(std::string_view& bytes) = 0;
  /// The body has arrived whole.
  virtual void finishBody() {}
  /// The exchange is over, with nothing or with what went wrong.
  virtual void end(std::optional<Error> error) = 0;
};

/// How far an exchange may go.
struct HTTPLimits {
  Duration silence{};                    ///< while connecting and between two pieces; zero: none
  Duration whole{};                      ///< for the whole exchange; zero: none
  std::optional<std::size_t> bodyBytes;  ///< of the answer
};

/// Starts an exchange on a connection of its own, which `check` must pass. It lives on the reactor
/// until it is over; the handle that is returned only cancels it. The receiver is let go on the
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

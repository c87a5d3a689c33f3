#pragma once

#include <memory>
#include <optional>
#include <string_view>

#include "System/Network/HTTPSession.hpp"

namespace zephyl {

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
std::shared_ptr<HTTPTask::Exchange> startExchange(Reactor& reactor, ClientRequest request,
                                                  const HTTPLimits& limits, ConnectionCheck check,
                                                  std::unique_ptr<HTTPReceiver> receiver);

}  // namespace zephyl

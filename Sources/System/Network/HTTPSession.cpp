#include "System/Network/HTTPSession.hpp"

#include "System/Data/LineSplitter.hpp"
#include "System/Network/HTTPExchange.hpp"
#include "System/Network/KeptConnection.hpp"

namespace zephyl {

namespace {

/// Collects the whole answer.
class WholeReceiver final : public HTTPReceiver {
 public:
  explicit WholeReceiver(std::function<void(Result<ClientResponse>)> done)
      : done_(std::move(done)) {}

  bool receiveStatus(int status) override {
    response_.status = status;
    return true;
  }

  void receiveBody(std::string_view& bytes) override {
    response_.body += bytes;
    bytes = {};
  }

  void end(std::optional<Error> error) override {
    if (error) return done_(std::move(*error));
    done_(std::move(response_));
  }

 private:
  std::function<void(Result<ClientResponse>)> done_;
  ClientResponse response_;
};

/// Delivers the answer line by line.
class LineReceiver final : public HTTPReceiver {
 public:
  LineReceiver(StreamHandlers handlers, std::size_t maxLineBytes)
      : handlers_(std::move(handlers)), lines_(maxLineBytes) {}

  bool receiveStatus(int status) override { return handlers_.onStatus(status); }

  void receiveBody(std::string_view& bytes) override {
    if (const auto line = lines_.next(bytes)) handlers_.onLine(*line);
  }

  void finishBody() override {
    if (const auto line = lines_.rest()) handlers_.onLine(*line);
  }

  void end(std::optional<Error> error) override { handlers_.onEnd(std::move(error)); }

 private:
  StreamHandlers handlers_;
  LineSplitter lines_;
};

}  // namespace

HTTPTask& HTTPTask::operator=(HTTPTask&& other) noexcept {
  if (this != &other) {
    cancel();
    exchange_ = std::move(other.exchange_);
  }
  return *this;
}

void HTTPTask::cancel() {
  if (const auto exchange = std::move(exchange_)) exchange->cancel();
}

HTTPSession::HTTPSession(Reactor& reactor, Configuration configuration)
    : reactor_(&reactor),
      configuration_(std::move(configuration)),
      kept_(configuration_.keepsConnection ? std::make_shared<KeptConnection>() : nullptr) {}

HTTPTask HTTPSession::send(ClientRequest request,
                           std::function<void(Result<ClientResponse>)> done) const {
  const HTTPLimits limits{.silence = configuration_.requestTimeout,
                          .whole = request.timeout,
                          .bodyBytes = configuration_.maxBodyBytes};
  const auto kept = request.method == "GET" ? kept_ : nullptr;
  return HTTPTask(startExchange(*reactor_, std::move(request), limits, configuration_.onConnected,
                                std::make_unique<WholeReceiver>(std::move(done)), kept));
}

HTTPTask HTTPSession::stream(ClientRequest request, StreamHandlers handlers) const {
  const HTTPLimits limits{.silence = configuration_.requestTimeout, .whole = request.timeout};
  return HTTPTask(startExchange(
      *reactor_, std::move(request), limits, configuration_.onConnected,
      std::make_unique<LineReceiver>(std::move(handlers), configuration_.maxLineBytes)));
}

}  // namespace zephyl

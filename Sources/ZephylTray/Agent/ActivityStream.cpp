#include "ZephylTray/Agent/ActivityStream.hpp"

#include <atomic>
#include <mutex>

#include "System/Concurrency/Clock.hpp"
#include "System/Concurrency/MainLoop.hpp"
#include "System/Concurrency/Reactor.hpp"
#include "System/Concurrency/Weakly.hpp"
#include "System/Data/JSON.hpp"
#include "System/Network/HTTPSession.hpp"

namespace zephyl {

namespace {
constexpr std::chrono::seconds reconnectDelay{2};
constexpr std::chrono::seconds requestTimeout{3600};
constexpr std::string_view dataPrefix = "data: ";
}  // namespace

/// Runs on the reactor's thread, except for `deliver` (main thread) and `cancel` (any thread).
class ActivityStream::Reader : public std::enable_shared_from_this<Reader> {
 public:
  Reader(const Runtime& runtime, std::string url, std::shared_ptr<AgentPeer> peer,
         std::function<void(Activity)> onActivity)
      : runtime_(runtime),
        url_(std::move(url)),
        peer_(std::move(peer)),
        onActivity_(std::move(onActivity)) {}

  void open() {
    if (cancelled_) return;
    const auto check = [peer = peer_](const std::string& address, std::uint16_t port) {
      peer->forget();
      return peer->verify(address, port);
    };
    const HTTPSession session(runtime_.reactor,
                              {.requestTimeout = requestTimeout, .onConnected = check});
    exchange_ = session.stream({.url = url_, .timeout = Duration::zero()}, handlers());
  }

  void cancel() {
    cancelled_ = true;
    runtime_.reactor.post([self = shared_from_this()] { self->exchange_.cancel(); });
  }

 private:
  StreamHandlers handlers() {
    return {
        .onStatus = [](int status) { return status == 200; },
        .onLine = weakly(this, [](Reader& self, std::string_view line) { self.read(line); }),
        .onEnd = weakly(this, [](Reader& self, const std::optional<Error>&) { self.openLater(); })};
  }

  void openLater() {
    peer_->forget();
    if (cancelled_) return;
    runtime_.clock.afterDetached(
        reconnectDelay, weakly(this, [](Reader& self) {
          self.runtime_.reactor.post(weakly(&self, [](Reader& due) { due.open(); }));
        }));
  }

  void read(std::string_view line) {
    if (!line.starts_with(dataPrefix)) return;
    auto activity = json::decodeText<Activity>(line.substr(dataPrefix.size()));
    if (!activity) return;
    {
      const std::scoped_lock lock(mutex_);
      const bool taskIsWaiting = newest_.has_value();
      newest_ = std::move(*activity);
      if (taskIsWaiting) return;
    }
    runtime_.mainLoop.async(weakly(this, [](Reader& self) { self.deliver(); }));
  }

  void deliver() {
    std::optional<Activity> activity;
    {
      const std::scoped_lock lock(mutex_);
      activity.swap(newest_);
    }
    if (activity && !cancelled_) onActivity_(std::move(*activity));
  }

  const Runtime runtime_;
  const std::string url_;
  const std::shared_ptr<AgentPeer> peer_;
  const std::function<void(Activity)> onActivity_;
  HTTPTask exchange_;
  std::atomic<bool> cancelled_ = false;
  std::mutex mutex_;
  std::optional<Activity> newest_;  // delivered by the pending task on the main thread
};

ActivityStream::ActivityStream(const Runtime& runtime, std::string url,
                               std::shared_ptr<AgentPeer> peer,
                               std::function<void(Activity)> onActivity)
    : reader_(std::make_shared<Reader>(runtime, std::move(url), std::move(peer),
                                       std::move(onActivity))) {
  runtime.reactor.post([reader = reader_] { reader->open(); });
}

ActivityStream::~ActivityStream() {
  reader_->cancel();
}

}  // namespace zephyl

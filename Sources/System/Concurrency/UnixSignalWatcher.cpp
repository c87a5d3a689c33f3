#include "System/Concurrency/UnixSignalWatcher.hpp"

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>

#include "System/Concurrency/Reactor.hpp"

namespace zephyl {

class UnixSignalWatcher::Watch : public std::enable_shared_from_this<Watch> {
 public:
  Watch(Reactor& reactor, std::initializer_list<int> signals, std::function<void(int)> onSignal)
      : signals_(reactor.context()), onSignal_(std::move(onSignal)) {
    for (const int signal : signals) signals_.add(signal);
  }

  void wait() {
    signals_.async_wait([self = shared_from_this()](boost::system::error_code error, int signal) {
      if (error) return;
      self->onSignal_(signal);
      self->wait();
    });
  }

  void cancel() {
    boost::system::error_code ignored;
    signals_.cancel(ignored);
  }

 private:
  boost::asio::signal_set signals_;
  std::function<void(int)> onSignal_;
};

UnixSignalWatcher::UnixSignalWatcher(Reactor& reactor, std::initializer_list<int> signals,
                                     std::function<void(int)> onSignal)
    : watch_(std::make_shared<Watch>(reactor, signals, std::move(onSignal))), reactor_(reactor) {
  reactor_.run([this] { watch_->wait(); });
}

UnixSignalWatcher::~UnixSignalWatcher() {
  reactor_.run([this] { watch_->cancel(); });
}

}  // namespace zephyl

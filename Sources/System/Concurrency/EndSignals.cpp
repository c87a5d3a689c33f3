#include "System/Concurrency/EndSignals.hpp"

#include <csignal>

#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>

#include <sys/signalfd.h>

#include "System/Concurrency/Reactor.hpp"

namespace zephyl {

namespace asio = boost::asio;

namespace {

sigset_t setOf(std::span<const int> signals) {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : signals) sigaddset(&set, signal);
  return set;
}

}  // namespace

class EndSignals::Watch : public std::enable_shared_from_this<Watch> {
 public:
  Watch(Reactor& reactor, std::span<const int> signals, std::function<void()> onEnd)
      : descriptor_(reactor.context()), onEnd_(std::move(onEnd)) {
    const sigset_t set = setOf(signals);
    boost::system::error_code ignored;
    descriptor_.assign(::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK), ignored);
  }

  void read() {
    descriptor_.async_read_some(
        asio::buffer(&arrived_, sizeof arrived_),
        [self = shared_from_this()](boost::system::error_code error, std::size_t) {
          if (error) return;
          self->onEnd_();
          self->read();
        });
  }

  void close() {
    boost::system::error_code ignored;
    descriptor_.close(ignored);
  }

 private:
  asio::posix::stream_descriptor descriptor_;
  std::function<void()> onEnd_;
  signalfd_siginfo arrived_{};
};

void EndSignals::block(std::span<const int> signals) {
  const sigset_t set = setOf(signals);
  ::pthread_sigmask(SIG_SETMASK, &set, nullptr);
}

bool EndSignals::arePending() {
  sigset_t pending;
  sigset_t blocked;
  ::sigpending(&pending);
  ::pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
  for (int signal = 1; signal < NSIG; ++signal) {
    if (sigismember(&pending, signal) == 1 && sigismember(&blocked, signal) == 1) return true;
  }
  return false;
}

EndSignals::EndSignals(Reactor& reactor, std::span<const int> signals, std::function<void()> onEnd)
    : watch_(std::make_shared<Watch>(reactor, signals, std::move(onEnd))), reactor_(reactor) {
  reactor_.run([this] { watch_->read(); });
}

EndSignals::~EndSignals() {
  reactor_.run([this] { watch_->close(); });
}

}  // namespace zephyl

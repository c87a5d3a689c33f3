#include "Desktop/Terminal/TerminalDevice.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <tuple>
#include <utility>

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "System/Concurrency/Reactor.hpp"
#include "System/Data/Secret.hpp"
#include "System/Files/FileDescriptor.hpp"

namespace zephyl {

namespace {

namespace asio = boost::asio;
using boost::system::error_code;

/// The data that the crash handler needs to restore the terminal. Written only while the handler is
/// not installed.
struct CrashRestoration {
  int descriptor = -1;
  termios before{};
  std::array<char, 256> leave{};
  std::size_t leaveLength = 0;
};
CrashRestoration crashRestoration;

constexpr std::array crashSignals{SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGSYS, SIGQUIT};

/// The handler is reset after one signal, so raising the signal again ends the program as usual.
void restoreAndCrash(int signal) {
  std::ignore = ::write(crashRestoration.descriptor, crashRestoration.leave.data(),
                        crashRestoration.leaveLength);
  ::tcsetattr(crashRestoration.descriptor, TCSANOW, &crashRestoration.before);
  ::raise(signal);
}

void installCrashHandler(int descriptor, const termios& before, const std::string& leave) {
  crashRestoration = {.descriptor = descriptor, .before = before};
  crashRestoration.leaveLength =
      leave.copy(crashRestoration.leave.data(), crashRestoration.leave.size());
  struct sigaction action {};
  action.sa_handler = restoreAndCrash;
  action.sa_flags = SA_RESETHAND | SA_NODEFER;
  for (const int signal : crashSignals) ::sigaction(signal, &action, nullptr);
}

void removeCrashHandler() {
  for (const int signal : crashSignals) std::signal(signal, SIG_DFL);
}

/// Returns settings that deliver single keys and interpret only the interrupt key.
termios forKeys(termios settings) {
  settings.c_iflag &= ~static_cast<tcflag_t>(ICRNL | INLCR | IXON | ISTRIP | BRKINT);
  settings.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | IEXTEN);
  settings.c_cc[VMIN] = 1;
  settings.c_cc[VTIME] = 0;
  settings.c_cc[VSUSP] = _POSIX_VDISABLE;
  settings.c_cc[VQUIT] = _POSIX_VDISABLE;
  return settings;
}

}  // namespace

/// Waits for the terminal on the reactor's thread.
class TerminalDevice::Watch : public std::enable_shared_from_this<Watch> {
 public:
  Watch(Reactor& reactor, Listener listener)
      : descriptor_(reactor.context()), listener_(std::move(listener)) {}

  error_code attach(FileDescriptor& terminal) {
    error_code error;
    descriptor_.assign(terminal.get(), error);
    if (!error) terminal.release();
    return error;
  }

  void awaitInput() {
    descriptor_.async_wait(asio::posix::descriptor_base::wait_read,
                           [self = shared_from_this()](const error_code& error) {
                             if (!error && self->read()) self->awaitInput();
                           });
  }

  void awaitRoom() {
    if (!descriptor_.is_open()) return;
    descriptor_.async_wait(asio::posix::descriptor_base::wait_write,
                           [self = shared_from_this()](const error_code& error) {
                             if (!error) self->listener_.writable();
                           });
  }

  void close() {
    error_code ignored;
    descriptor_.close(ignored);
  }

 private:
  bool read() {
    std::array<char, 4096> buffer;
    const ssize_t count = ::read(descriptor_.native_handle(), buffer.data(), buffer.size());
    if (count > 0) {
      listener_.input(std::string_view(buffer.data(), static_cast<std::size_t>(count)));
      wipe(buffer);  // it may contain a secret
      return true;
    }
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) return true;
    listener_.closed();
    return false;
  }

  asio::posix::stream_descriptor descriptor_;
  const Listener listener_;
};

Result<std::unique_ptr<TerminalDevice>> TerminalDevice::open(Reactor& reactor,
                                                             const TerminalType& type,
                                                             Listener listener) {
  FileDescriptor terminal(::open("/dev/tty", O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
  termios before{};
  if (!terminal || ::tcgetattr(terminal.get(), &before) != 0) return Error{"there is no terminal"};
  if (::tcgetpgrp(terminal.get()) != ::getpgrp()) {
    return Error{"another program uses the terminal: this one was started in the background"};
  }
  const int descriptor = terminal.get();
  auto watch = std::make_shared<Watch>(reactor, std::move(listener));
  if (const error_code error = watch->attach(terminal)) return Error{error.message()};
  std::unique_ptr<TerminalDevice> device(new TerminalDevice(reactor, descriptor, before, type));
  device->watch_ = std::move(watch);
  device->acquire();
  reactor.post([watch = device->watch_] { watch->awaitInput(); });
  return device;
}

TerminalDevice::TerminalDevice(Reactor& reactor, int descriptor, const termios& before,
                               const TerminalType& type)
    : reactor_(reactor),
      descriptor_(descriptor),
      before_(before),
      enter_(type.enter()),
      leave_(type.leave()) {}

TerminalDevice::~TerminalDevice() {
  removeCrashHandler();
  if (isForeground()) restore();
  reactor_.run([this] { watch_->close(); });
}

void TerminalDevice::acquire() {
  installCrashHandler(descriptor_, before_, leave_);
  const termios settings = forKeys(before_);
  ::tcsetattr(descriptor_, TCSANOW, &settings);
  write(enter_);
}

/// The kernel stops a background program that changes its terminal.
bool TerminalDevice::isForeground() const {
  return ::tcgetpgrp(descriptor_) == ::getpgrp();
}

void TerminalDevice::reacquire() {
  if (!isForeground()) return;
  pending_.clear();
  acquire();
}

/// Waits only a moment for a slow terminal.
void TerminalDevice::restore() {
  constexpr int longestWait = 200;  // ms
  pollfd room{.fd = descriptor_, .events = POLLOUT, .revents = 0};
  if (::poll(&room, 1, longestWait) > 0 && (room.revents & POLLOUT) != 0) {
    std::ignore = ::write(descriptor_, leave_.data(), leave_.size());
  }
  ::tcflush(descriptor_, TCIFLUSH);  // unread keys were meant for the screen, not the shell
  ::tcsetattr(descriptor_, TCSANOW, &before_);
}

ScreenSize TerminalDevice::size() const {
  winsize window{};
  if (::ioctl(descriptor_, TIOCGWINSZ, &window) != 0 || window.ws_row == 0) return {24, 80};
  return {window.ws_row, window.ws_col};
}

void TerminalDevice::write(std::string_view bytes) {
  pending_.append(bytes);
  resume();
}

void TerminalDevice::resume() {
  std::size_t written = 0;
  int failure = 0;
  while (written < pending_.size()) {
    const ssize_t count =
        ::write(descriptor_, pending_.data() + written, pending_.size() - written);
    failure = count < 0 ? errno : 0;
    if (failure == EINTR) continue;
    if (failure != 0) break;
    written += static_cast<std::size_t>(count);
  }
  if (failure != EAGAIN) return pending_.clear();
  pending_.erase(0, written);
  reactor_.post([watch = watch_] { watch->awaitRoom(); });
}

}  // namespace zephyl

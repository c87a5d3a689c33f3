#pragma once

#include <csignal>
#include <string>

#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Support/Eventually.hpp"
#include "Support/TemporaryDirectory.hpp"
#include "System/Files/FileDescriptor.hpp"

namespace zephyl::test {

/// A private dbus-daemon, which is the session bus in the environment. It starts no services, and
/// ends with the test's process at the latest.
class PrivateBus {
 public:
  PrivateBus() {
    const auto configuration = directory_.write("bus.conf", configurationText());
    process_ = ::fork();
    if (process_ == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      ::execlp("dbus-daemon", "dbus-daemon", ("--config-file=" + configuration).c_str(), "--nofork",
               nullptr);
      ::_exit(127);
    }
    isUp_ = eventually([this] { return listens(); });
  }
  ~PrivateBus() {
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
  }
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;

  [[nodiscard]] bool isUp() const { return isUp_; }
  /// Suspends the daemon: it accepts connections, but does not answer until `resume`.
  void suspend() const { ::kill(process_, SIGSTOP); }
  void resume() const { ::kill(process_, SIGCONT); }

 private:
  [[nodiscard]] std::string socket() const { return directory_ / "bus"; }
  [[nodiscard]] bool listens() const {
    const FileDescriptor probe(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    socket().copy(static_cast<char*>(address.sun_path), sizeof address.sun_path - 1);
    return ::connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  }
  [[nodiscard]] std::string configurationText() const {
    return "<busconfig><type>session</type><listen>unix:path=" + socket() +
           "</listen><auth>EXTERNAL</auth><policy context=\"default\">"
           "<allow send_destination=\"*\" eavesdrop=\"true\"/><allow eavesdrop=\"true\"/>"
           "<allow own=\"*\"/></policy></busconfig>";
  }

  TemporaryDirectory directory_;
  ScopedVariable address_{"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + socket()};
  pid_t process_ = -1;
  bool isUp_ = false;
};

}  // namespace zephyl::test

#pragma once

#include <functional>
#include <memory>
#include <string>

#include <termios.h>

#include "Desktop/Terminal/Drawing/TerminalType.hpp"
#include "Desktop/Terminal/TerminalScreen.hpp"
#include "System/Data/Result.hpp"

namespace zephyl {

class Reactor;

/// The terminal that the program was started from. Opened anew, so that nothing that is set on it
/// here reaches the shell's own descriptors.
///
/// From `open` on it is the program's alone: keys come as they are pressed, and the screen is
/// another one. It is given back by the destructor, and by a handler of the signals that a crash
/// ends in; that handler is the one thing here that is global, so there is one device at a time.
///
/// Main thread; the listener is called on the reactor's.
class TerminalDevice final : public TerminalOutput {
 public:
  struct Listener {
    std::function<void(SecretString)> input;
    std::function<void()> writable;  ///< `resume` what was busy
    std::function<void()> closed;    ///< the terminal was closed; called once
  };

  /// Fails where there is no terminal, or where another program has it in the foreground. The
  /// reactor outlives it.
  static Result<std::unique_ptr<TerminalDevice>> open(Reactor& reactor, const TerminalType& type,
                                                      Listener listener);
  ~TerminalDevice() override;

  [[nodiscard]] ScreenSize size() const override;
  [[nodiscard]] bool isBusy() const override { return !pending_.empty(); }
  void write(std::string_view bytes) override;
  /// Goes on with what the terminal did not take.
  void resume();
  /// Takes the terminal over again, after it was somebody else's.
  void takeAgain();

 private:
  class Watch;

  TerminalDevice(Reactor& reactor, int descriptor, const termios& before, const TerminalType& type);
  [[nodiscard]] bool isForeground() const;
  void takeOver();
  void giveBack();

  Reactor& reactor_;
  const int descriptor_;  // the watch's
  const termios before_;
  const std::string enter_;
  const std::string leave_;
  std::shared_ptr<Watch> watch_;
  SecretString pending_;
};

}  // namespace zephyl

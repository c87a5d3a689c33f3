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

/// The terminal from which the program was started. It is opened again, so that flags set here do
/// not affect the shell's own descriptors.
///
/// After `open` the program uses the terminal exclusively: keys are received when they are pressed,
/// and the alternate screen is shown. The destructor restores the terminal, as does a handler for
/// crash signals. That handler is global, so only one device may exist at a time.
///
/// Main thread only. The listener is called on the reactor's thread.
class TerminalDevice final : public TerminalOutput {
 public:
  struct Listener {
    std::function<void(SecretString)> input;
    std::function<void()> writable;  ///< call `resume`
    std::function<void()> closed;    ///< called once when the terminal was closed
  };

  /// Fails if there is no terminal, or if another program has it in the foreground. `reactor` must
  /// outlive it.
  static Result<std::unique_ptr<TerminalDevice>> open(Reactor& reactor, const TerminalType& type,
                                                      Listener listener);
  ~TerminalDevice() override;

  [[nodiscard]] ScreenSize size() const override;
  [[nodiscard]] bool isBusy() const override { return !pending_.empty(); }
  void write(std::string_view bytes) override;
  /// Writes the bytes that the terminal has not accepted yet.
  void resume();
  /// Acquires the terminal again after another program has used it.
  void reacquire();

 private:
  class Watch;

  TerminalDevice(Reactor& reactor, int descriptor, const termios& before, const TerminalType& type);
  [[nodiscard]] bool isForeground() const;
  void acquire();
  void restore();

  Reactor& reactor_;
  const int descriptor_;  // owned by the watch
  const termios before_;
  const std::string enter_;
  const std::string leave_;
  std::shared_ptr<Watch> watch_;
  SecretString pending_;
};

}  // namespace zephyl

#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "System/Data/Result.hpp"
#include "System/Files/FileDescriptor.hpp"
#include "System/Processes/ChildProcess.hpp"

namespace zephyl {

class OutputPipe;
class Reactor;

/// Captures output that would be printed over the screen: redirects standard output and standard
/// error, if they are a terminal, into a pipe, also for the children that are started later. The
/// pipe is read while any process holds it, even after the capture has ended and the program prints
/// to the original descriptors.
class OutputCapture {
 public:
  /// Calls `onLines` on the reactor's thread. `reactor` must outlive it.
  static Result<std::unique_ptr<OutputCapture>> start(Reactor& reactor,
                                                      std::function<void(OutputLines)> onLines);
  ~OutputCapture();
  OutputCapture(const OutputCapture&) = delete;
  OutputCapture& operator=(const OutputCapture&) = delete;

  /// Returns whether standard error is captured. It is not if it is a file, for example.
  [[nodiscard]] bool hasStandardError() const;

 private:
  struct Replaced {
    int descriptor;
    FileDescriptor before;
  };

  OutputCapture() = default;

  std::shared_ptr<OutputPipe> pipe_;
  std::vector<Replaced> replaced_;
};

}  // namespace zephyl

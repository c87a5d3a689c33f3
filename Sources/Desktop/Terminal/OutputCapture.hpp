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

/// Takes what would be printed over the screen: standard output and standard error, where they are
/// a terminal, lead into a pipe from now on, also those of the children started from now on. The
/// pipe is read as long as anybody holds it, also when the capture has gone and the program prints
/// where it did before.
class OutputCapture {
 public:
  /// `onLines` is called on the reactor's thread. The reactor outlives it.
  static Result<std::unique_ptr<OutputCapture>> start(Reactor& reactor,
                                                      std::function<void(OutputLines)> onLines);
  ~OutputCapture();
  OutputCapture(const OutputCapture&) = delete;
  OutputCapture& operator=(const OutputCapture&) = delete;

  /// Whether standard error is captured, rather than, say, a file.
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

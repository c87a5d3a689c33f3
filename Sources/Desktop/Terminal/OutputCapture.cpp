#include "Desktop/Terminal/OutputCapture.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include "System/Concurrency/Reactor.hpp"
#include "System/Processes/ChildPipes.hpp"

namespace zephyl {

Result<std::unique_ptr<OutputCapture>> OutputCapture::start(
    Reactor& reactor, std::function<void(OutputLines)> onLines) {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return systemError("pipe", errno);
  FileDescriptor readingEnd(ends[0]);
  const FileDescriptor writingEnd(ends[1]);
  auto pipe =
      std::make_shared<OutputPipe>(reactor.context(), LineReader::maxLineBytes, std::move(onLines));
  if (const auto error = pipe->attach(readingEnd)) return Error{error.message()};
  reactor.post([pipe] { pipe->start(); });

  std::unique_ptr<OutputCapture> capture(new OutputCapture);
  capture->pipe_ = std::move(pipe);
  for (const int descriptor : {STDOUT_FILENO, STDERR_FILENO}) {
    if (::isatty(descriptor) == 0) continue;
    FileDescriptor before(::fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    if (!before || ::dup2(writingEnd.get(), descriptor) < 0) continue;
    capture->replaced_.push_back({descriptor, std::move(before)});
  }
  return capture;
}

OutputCapture::~OutputCapture() {
  for (const auto& each : replaced_) ::dup2(each.before.get(), each.descriptor);
}

bool OutputCapture::hasStandardError() const {
  return std::ranges::find(replaced_, STDERR_FILENO, &Replaced::descriptor) != replaced_.end();
}

}  // namespace zephyl

#include "System/Processes/HelperProcess.hpp"

#include <algorithm>

#include "System/Concurrency/MainLoop.hpp"
#include "System/Data/Format.hpp"
#include "System/Files/Log.hpp"

namespace zephyl {

namespace {

std::string describe(ExitStatus status) {
  const bool exited = status.reason == ExitStatus::Reason::exited;
  return formatText("it ended {} {}", exited ? "with status" : "by signal", status.status);
}

}  // namespace

HelperLines::HelperLines(MainLoop& mainLoop, ProcessLauncher& launcher, HelperOptions options,
                         Events events)
    : mainLoop_(mainLoop), events_(std::make_shared<Events>(std::move(events))) {
  options.process.onErrorOutput = [name = std::move(options.name),
                                   left = options.maxErrorLines](const OutputLines& lines) mutable {
    for (const auto& line : lines.lines()) {
      if (left > 0) log("{}: {}", name, line);
      left = std::max(left - 1, 0);
    }
  };
  launch(launcher, std::move(options.process));
}

HelperLines::~HelperLines() {
  endInput();
}

void HelperLines::launch(ProcessLauncher& launcher, ProcessOptions options) {
  const std::weak_ptr<Events> weak = events_;
  options.hasInput = true;
  options.onOutput = [&loop = mainLoop_, weak](OutputLines lines) {
    auto held = std::make_shared<OutputLines>(std::move(lines));  // delays further output
    loop.async([weak, held] {
      for (const auto& line : held->lines()) {
        if (const auto events = weak.lock()) events->line(line);
      }
    });
  };
  options.onExit = [&loop = mainLoop_, weak](ExitStatus status) {
    loop.async([weak, status] {
      if (const auto events = weak.lock()) events->ended(describe(status));
    });
  };
  auto child = launcher.launch(std::move(options));
  if (child) {
    child_ = std::move(*child);
    return;
  }
  mainLoop_.async([weak, reason = child.error().message] {
    if (const auto events = weak.lock()) events->failed(reason);
  });
}

void HelperLines::write(const std::string& line) {
  if (child_) child_->write(line);
}

void HelperLines::endInput() {
  if (child_) child_->closeInput();
}

void HelperLines::killGroup() {
  if (child_) child_->killGroup();
}

}  // namespace zephyl

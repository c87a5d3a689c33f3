#include "System/Processes/HelperProcess.hpp"

#include <algorithm>

#include "System/Concurrency/MainLoop.hpp"
#include "System/Concurrency/Weakly.hpp"
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
  options.hasInput = true;
  const auto handle =
      weakly(events_, [](const Events& events, const std::string& line) { events.line(line); });
  options.onOutput = [&loop = mainLoop_, handle](OutputLines lines) {
    auto held = std::make_shared<OutputLines>(
        std::move(lines));  // alive until handled, which limits further output
    loop.async([handle, held] {
      for (const auto& line : held->lines()) handle(line);
    });
  };
  options.onExit = mainLoop_.later(weakly(
      events_, [](const Events& events, ExitStatus status) { events.ended(describe(status)); }));
  auto child = launcher.launch(std::move(options));
  if (child) {
    child_ = std::move(*child);
    return;
  }
  mainLoop_.async(weakly(
      events_, [reason = child.error().message](const Events& events) { events.failed(reason); }));
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

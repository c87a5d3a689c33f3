#include "Helpers/Dialogs/Client/DialogRun.hpp"

#include <algorithm>
#include <utility>

#include <malloc.h>

#include "System/Concurrency/MainLoop.hpp"
#include "System/Data/Format.hpp"
#include "System/Data/JSON.hpp"
#include "System/Files/Environment.hpp"
#include "System/Files/Log.hpp"

namespace zephyl {

namespace {

/// Enough for the longest path, with every character escaped.
constexpr std::size_t maxReportBytes = 64UL * 1024;

std::string describe(ExitStatus status) {
  const bool exited = status.reason == ExitStatus::Reason::exited;
  return formatText("it ended {} {}", exited ? "with status" : "by signal", status.status);
}

/// A log is a large text, of which copies were made and given back; the allocator would keep them.
void returnFreeMemory() {
  ::malloc_trim(0);
}

}  // namespace

DialogRun::DialogRun(MainLoop& mainLoop, Clock& clock, ProcessLauncher& launcher, Owner owner)
    : mainLoop_(mainLoop), clock_(clock), launcher_(launcher), owner_(std::move(owner)) {}

void DialogRun::start(const std::string& program, const DialogRequest& request,
                      const std::string& activationToken) {
  auto child = launcher_.launch(options(program, activationToken));
  if (!child) {
    later(mainLoop_, weak_from_this(),
          [reason = child.error().message](DialogRun& run) { run.fail(reason); });
    return;
  }
  child_ = std::move(*child);
  child_->write(json::compact(json::encode(request)));
  after(shownLimit, &DialogRun::missShown);
}

ProcessOptions DialogRun::options(const std::string& program, const std::string& activationToken) {
  ProcessOptions options;
  options.executable = program;
  options.environment = currentEnvironment();
  setActivationToken(options.environment, activationToken);
  options.hasInput = true;
  options.maxLineBytes = maxReportBytes;
  options.onOutput = [&loop = mainLoop_, weak = weak_from_this()](OutputLines lines) {
    auto held = std::make_shared<OutputLines>(std::move(lines));  // not read from meanwhile
    loop.async([weak, held] {
      const auto run = weak.lock();
      for (const auto& line : held->lines()) {
        if (run) run->takeLine(line);
      }
      held->wipe();  // somebody may have typed a secret
    });
  };
  options.onErrorOutput = [left = maxErrorLines](const OutputLines& lines) mutable {
    for (const auto& line : lines.lines()) {
      if (left > 0) log("zephyl-tray-dialogs: {}", line);
      left = std::max(left - 1, 0);
    }
  };
  options.onExit = [&loop = mainLoop_, weak = weak_from_this()](ExitStatus status) {
    later(loop, weak, [status](DialogRun& run) { run.end(status); });
  };
  return options;
}

void DialogRun::later(MainLoop& mainLoop, const std::weak_ptr<DialogRun>& run,
                      std::function<void(DialogRun&)> work) {
  mainLoop.async([run, work = std::move(work)] {
    if (const auto self = run.lock()) work(*self);
  });
}

void DialogRun::after(Duration delay, void (DialogRun::*work)()) {
  timer_ = clock_.after(delay, [&loop = mainLoop_, weak = weak_from_this(), work] {
    later(loop, weak, [work](DialogRun& run) {
      if (run.state_ != State::over) (run.*work)();
    });
  });
}

void DialogRun::takeLine(const std::string& line) {
  auto report = json::decodeText<DialogReport>(line);
  if (report && report->hidden) hidden_ = true;
  if (state_ == State::over) return;
  if (!report) return fail("it does not speak the language: " + report.error().message);
  take(*report);
}

void DialogRun::take(DialogReport& report) {
  if (report.hidden) return;
  if (report.pong) {
    lastPong_ = *report.pong;
    return;
  }
  if (report.shown && state_ == State::starting) return becomeShown();
  const auto step = state_ == State::shown ? owner_.interpret(report) : std::nullopt;
  if (!step) return fail("it said what makes no sense");
  if (step->last) finish();
  step->tell();
}

void DialogRun::becomeShown() {
  state_ = State::shown;
  returnFreeMemory();
  after(pingInterval, &DialogRun::ping);
}

void DialogRun::missShown() {
  if (state_ == State::starting) fail("it showed nothing");
}

/// The next one is due only after this one has run, so that a main thread that was held up does
/// not take its own delay for the program's.
void DialogRun::ping() {
  missedPings_ = lastPong_ == lastPing_ ? 0 : missedPings_ + 1;
  if (missedPings_ == maxMissedPings) return fail("it does not answer any more");
  child_->write(json::compact(json::encode(DialogOrder{.ping = ++lastPing_})));
  after(pingInterval, &DialogRun::ping);
}

void DialogRun::end(ExitStatus status) {
  hidden_ = true;
  if (state_ != State::over) fail(describe(status));
}

void DialogRun::order(const DialogOrder& order) {
  if (state_ != State::over && child_) child_->write(json::compact(json::encode(order)));
}

void DialogRun::close() {
  if (state_ != State::over) finish();
}

void DialogRun::fail(const std::string& reason) {
  const bool wasShown = state_ == State::shown;
  log("zephyl-tray-dialogs {}: {}", wasShown ? "lost its window" : "could not show its window",
      reason);
  const auto failed = std::move(owner_.failed);
  finish();
  if (child_) child_->killGroup();
  failed(wasShown);
}

void DialogRun::finish() {
  state_ = State::over;
  timer_.cancel();
  owner_ = {};
  if (!child_) return;
  child_->closeInput();
  clock_.afterDetached(farewellLimit, [self = shared_from_this()] {
    self->mainLoop_.async([self] {
      if (!self->hidden_) self->child_->killGroup();
      returnFreeMemory();
    });
  });
}

}  // namespace zephyl

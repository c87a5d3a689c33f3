#include "Helpers/Dialogs/Client/DialogProcess.hpp"

#include <utility>

#include <malloc.h>

#include "System/Concurrency/MainLoop.hpp"
#include "System/Concurrency/Weakly.hpp"
#include "System/Files/Environment.hpp"
#include "System/Files/Log.hpp"

namespace zephyl {

namespace {

/// Large enough for the longest path with every character escaped.
constexpr std::size_t maxReportBytes = 64UL * 1024;

HelperOptions optionsFor(const std::string& program, const std::string& activationToken) {
  HelperOptions options{.name = "zephyl-tray-dialogs",
                        .maxErrorLines = DialogProcess::maxErrorLines};
  options.process.executable = program;
  options.process.environment = currentEnvironment();
  setActivationToken(options.process.environment, activationToken);
  options.process.maxLineBytes = maxReportBytes;
  return options;
}

/// Returns freed memory to the system, because the allocator would keep the memory of large copies
/// of a log.
void returnFreeMemory() {
  ::malloc_trim(0);
}

}  // namespace

DialogProcess::DialogProcess(MainLoop& mainLoop, Clock& clock, Owner owner)
    : mainLoop_(mainLoop), clock_(clock), owner_(std::move(owner)) {}

void DialogProcess::start(ProcessLauncher& launcher, const std::string& program,
                          const DialogRequest& request, const std::string& activationToken) {
  program_.emplace(mainLoop_, launcher, optionsFor(program, activationToken), request, events());
  after(shownTimeout, &DialogProcess::failUnlessShown);
}

HelperProcess<DialogsProtocol>::Events DialogProcess::events() {
  const std::weak_ptr<DialogProcess> weak = weak_from_this();
  return {.reported =
              [weak](DialogReport report) {
                if (const auto self = weak.lock()) self->handle(std::move(report));
              },
          .failed =
              [weak](const std::string& reason) {
                if (const auto self = weak.lock()) self->fail(reason);
              },
          .ended =
              [weak](const std::string& how) {
                const auto self = weak.lock();
                if (!self) return;
                self->hidden_ = true;
                self->fail(how);
              }};
}

void DialogProcess::after(Duration delay, void (DialogProcess::*work)()) {
  timer_ = mainLoop_.after(clock_, delay, weakly(this, [work](DialogProcess& self) {
                             if (self.state_ != State::over) (self.*work)();
                           }));
}

void DialogProcess::handle(DialogReport report) {
  if (std::holds_alternative<DialogHidden>(report)) {
    hidden_ = true;
    return;
  }
  if (state_ == State::over) return;
  if (const auto* pong = std::get_if<Pong>(&report)) {
    lastPong_ = pong->value;
    return;
  }
  if (std::holds_alternative<DialogShown>(report) && state_ == State::starting) {
    return becomeShown();
  }
  const auto step = state_ == State::shown ? owner_.interpret(report) : std::nullopt;
  if (!step) return fail("it sent an unexpected message");
  if (step->isLast) finish();
  step->notify();
}

void DialogProcess::becomeShown() {
  state_ = State::shown;
  returnFreeMemory();
  after(pingInterval, &DialogProcess::ping);
}

void DialogProcess::failUnlessShown() {
  if (state_ == State::starting) fail("it showed no window");
}

/// Starts the interval to the next ping here, so that a delay of the main thread is not attributed
/// to the program.
void DialogProcess::ping() {
  missedPings_ = lastPong_ == lastPing_ ? 0 : missedPings_ + 1;
  if (missedPings_ == maxMissedPings) return fail("it does not answer pings");
  program_->send(Ping{++lastPing_});
  after(pingInterval, &DialogProcess::ping);
}

void DialogProcess::send(const DialogOrder& order) {
  if (state_ != State::over) program_->send(order);
}

void DialogProcess::close() {
  if (state_ != State::over) finish();
}

void DialogProcess::fail(const std::string& reason) {
  if (state_ == State::over) return;
  const bool wasShown = state_ == State::shown;
  log("zephyl-tray-dialogs {}: {}", wasShown ? "lost its window" : "could not show its window",
      reason);
  const auto failed = std::move(owner_.failed);
  finish();
  program_->kill();
  failed(wasShown);
}

void DialogProcess::finish() {
  state_ = State::over;
  timer_.cancel();
  owner_ = {};
  program_->endInput();
  clock_.afterDetached(hiddenTimeout, [self = shared_from_this()] {
    self->mainLoop_.async([self] {
      if (!self->hidden_) self->program_->kill();
      returnFreeMemory();
    });
  });
}

}  // namespace zephyl

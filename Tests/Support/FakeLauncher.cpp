#include "Support/FakeLauncher.hpp"

#include <csignal>

namespace zephyl::test {

bool FakeChild::isRunning() const {
  const std::scoped_lock lock(mutex_);
  return running_;
}

void FakeChild::terminate() {
  {
    const std::scoped_lock lock(mutex_);
    ++terminateRequests_;
    if (ignoresTermination_) return;
  }
  exit({ExitStatus::Reason::signalled, SIGTERM});
}

void FakeChild::killGroup() {
  exit({ExitStatus::Reason::signalled, SIGKILL});
}

int FakeChild::terminateRequests() const {
  const std::scoped_lock lock(mutex_);
  return terminateRequests_;
}

void FakeChild::print(std::vector<std::string> lines) {
  options_.onOutput(OutputLines(std::move(lines), nullptr));
}

void FakeChild::printError(std::vector<std::string> lines) {
  options_.onErrorOutput(OutputLines(std::move(lines), nullptr));
}

void FakeChild::write(std::string_view line) {
  const std::scoped_lock lock(mutex_);
  if (options_.hasInput && !inputEnded_) input_.emplace_back(line);
}

void FakeChild::closeInput() {
  const std::scoped_lock lock(mutex_);
  inputEnded_ = true;
}

std::vector<std::string> FakeChild::input() const {
  const std::scoped_lock lock(mutex_);
  return input_;
}

bool FakeChild::inputEnded() const {
  const std::scoped_lock lock(mutex_);
  return inputEnded_;
}

void FakeChild::exit(ExitStatus status) {
  {
    const std::scoped_lock lock(mutex_);
    if (!running_) return;
    running_ = false;
  }
  if (options_.onExit) options_.onExit(status);
}

Result<std::shared_ptr<ChildProcess>> FakeLauncher::launch(ProcessOptions options) {
  const std::scoped_lock lock(mutex_);
  if (failure_) return Error{*failure_};
  const auto pid = static_cast<pid_t>(1000 + children_.size());
  children_.push_back(std::make_shared<FakeChild>(pid, std::move(options)));
  return std::shared_ptr<ChildProcess>(children_.back());
}

void FakeLauncher::failWith(std::optional<std::string> reason) {
  const std::scoped_lock lock(mutex_);
  failure_ = std::move(reason);
}

std::vector<std::shared_ptr<FakeChild>> FakeLauncher::children() const {
  const std::scoped_lock lock(mutex_);
  return children_;
}

}  // namespace zephyl::test

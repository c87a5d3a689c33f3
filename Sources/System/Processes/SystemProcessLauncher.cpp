#include "System/Processes/SystemProcessLauncher.hpp"

#include <atomic>
#include <cassert>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <mutex>
#include <optional>

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>

#include <sys/wait.h>

#include "System/Concurrency/NoChildWaits.hpp"
#include "System/Concurrency/Reactor.hpp"
#include "System/Files/Environment.hpp"
#include "System/Processes/ChildPipes.hpp"
#include "System/Processes/Guardian.hpp"
#include "System/Processes/ProcessGroup.hpp"
#include "System/Processes/SpawnedChild.hpp"

namespace zephyl {

namespace {

namespace asio = boost::asio;
using boost::system::error_code;
using SteadyClock = std::chrono::steady_clock;

/// The owner's handle of a child. Independent of the reactor, so it may outlive it.
class SystemChild final : public ChildProcess {
 public:
  SystemChild(pid_t pid, std::shared_ptr<InputBuffer> input)
      : pid_(pid), input_(std::move(input)) {}

  [[nodiscard]] pid_t pid() const override { return pid_; }

  [[nodiscard]] bool isRunning() const override {
    const std::scoped_lock lock(mutex_);
    return !reaped_;
  }

  void terminate() override { requestEnd(pid_); }
  void terminateGroup() override {
    groupSignalled_ = true;
    requestEnd(-pid_);
  }
  void killGroup() override { signal(-pid_, SIGKILL); }

  [[nodiscard]] bool waitForExit(Duration limit) override {
    assert(NoChildWaits::allowWaiting());
    std::unique_lock lock(mutex_);
    return ended_.wait_for(lock, limit, [this] { return reaped_; });
  }

  void write(std::string_view line) override { input_->append(line); }
  void closeInput() override { input_->end(); }

  /// Returns how the child ended. Requires that it has ended and was not reaped, so that its id is
  /// not reused.
  [[nodiscard]] ExitStatus exitStatus() const {
    siginfo_t information{};
    ::waitid(P_PID, static_cast<id_t>(pid_), &information, WEXITED | WNOWAIT);
    const bool signalled = information.si_code == CLD_KILLED || information.si_code == CLD_DUMPED;
    return {signalled ? ExitStatus::Reason::signalled : ExitStatus::Reason::exited,
            information.si_status};
  }

  /// Sends SIGTERM to the rest of the group, unless the whole group received it before.
  void terminateRest() {
    if (!groupSignalled_.exchange(true)) signal(-pid_, SIGTERM);
  }

  /// Returns the end of the process group's grace, or nullopt if the child was not asked to end.
  [[nodiscard]] std::optional<SteadyClock::time_point> graceEnd() const {
    const std::scoped_lock lock(mutex_);
    return graceEnd_;
  }

  /// Reaps the child. Its id may be reused afterwards, so no signal is sent any more.
  void reap() {
    {
      const std::scoped_lock lock(mutex_);
      ::waitpid(pid_, nullptr, 0);
      reaped_ = true;
    }
    ended_.notify_all();
  }

 private:
  void requestEnd(pid_t target) {
    {
      const std::scoped_lock lock(mutex_);
      if (!graceEnd_) graceEnd_ = SteadyClock::now() + terminationGrace;
    }
    signal(target, SIGTERM);
  }

  void signal(pid_t target, int number) {
    const std::scoped_lock lock(mutex_);
    if (!reaped_) ::kill(target, number);
  }

  const pid_t pid_;
  const std::shared_ptr<InputBuffer> input_;
  std::atomic<bool> groupSignalled_ = false;
  mutable std::mutex mutex_;
  std::condition_variable ended_;
  bool reaped_ = false;
  std::optional<SteadyClock::time_point> graceEnd_;
};

/// Watches a child on the reactor's thread until it has ended. Its pending operations keep it
/// alive, so it is destroyed with the reactor at the latest.
class ChildWatch : public std::enable_shared_from_this<ChildWatch> {
 public:
  ChildWatch(asio::io_context& context, Guardian& guardian, std::shared_ptr<SystemChild> child,
             ProcessOptions options)
      : context_(context),
        guardian_(guardian),
        process_(context),
        groupTimer_(context),
        child_(std::move(child)),
        options_(std::move(options)) {}

  /// Takes ownership of the descriptors.
  error_code attach(SpawnedChild& spawned, const std::shared_ptr<InputBuffer>& input) {
    error_code error;
    process_.assign(spawned.process.get(), error);
    if (error) return error;
    spawned.process.release();
    if (spawned.input) {
      input_ = std::make_shared<InputPipe>(context_, input);
      error = input_->attach(spawned.input);
    }
    if (!error) error = attachOutput(spawned.output, options_.onOutput);
    if (!error) error = attachOutput(spawned.errors, options_.onErrorOutput);
    return error;
  }

  void start() {
    process_.async_wait(asio::posix::descriptor_base::wait_read,
                        [self = shared_from_this()](const error_code& error) {
                          if (!error) self->conclude();
                        });
    for (const auto& output : outputs_) output->start();
  }

 private:
  error_code attachOutput(FileDescriptor& end, std::function<void(OutputLines)>& onOutput) {
    if (!end) return {};
    outputs_.push_back(
        std::make_shared<OutputPipe>(context_, options_.maxLineBytes, std::move(onOutput)));
    return outputs_.back()->attach(end);
  }

  /// The child has ended. Its id, and that of its group, cannot be reused before it is reaped.
  void conclude() {
    if (mustWaitForGroup()) {
      child_->terminateRest();
      groupTimer_.expires_after(groupCheckInterval);
      groupTimer_.async_wait([self = shared_from_this()](const error_code& error) {
        if (!error) self->conclude();
      });
      return;
    }
    const ExitStatus status = child_->exitStatus();
    if (options_.lifetime == ProcessOptions::Lifetime::tied) {
      child_->killGroup();
      guardian_.remove(child_->pid());
    }
    if (input_) input_->close();
    for (const auto& output : outputs_) output->readRest();
    child_->reap();
    for (const auto& output : outputs_) output->finish();
    if (options_.onExit) options_.onExit(status);
  }

  /// Returns whether the child was asked to end and members of its group may use the rest of its
  /// grace.
  [[nodiscard]] bool mustWaitForGroup() const {
    if (options_.lifetime != ProcessOptions::Lifetime::tied) return false;
    const auto end = child_->graceEnd();
    return end && SteadyClock::now() < *end && hasOtherMembers(child_->pid());
  }

  static constexpr std::chrono::milliseconds groupCheckInterval{50};

  asio::io_context& context_;
  Guardian& guardian_;
  asio::posix::stream_descriptor process_;
  asio::steady_timer groupTimer_;
  const std::shared_ptr<SystemChild> child_;
  ProcessOptions options_;
  std::shared_ptr<InputPipe> input_;
  std::vector<std::shared_ptr<OutputPipe>> outputs_;
};

}  // namespace

Result<std::shared_ptr<ChildProcess>> SystemProcessLauncher::launch(ProcessOptions options) {
  Result<SpawnedChild> spawned;
  reactor_.run([&] { spawned = spawn(options, guardian_); });
  const Result<void> started =
      spawned ? awaitProgram(*spawned, options, guardian_) : Result<void>(spawned.error());
  options.environment.clear();  // it may hold secrets
  if (!started) return started.error();

  const auto input = std::make_shared<InputBuffer>();
  auto child = std::make_shared<SystemChild>(spawned->pid, input);
  const std::string executable = options.executable;
  const auto watch =
      std::make_shared<ChildWatch>(reactor_.context(), guardian_, child, std::move(options));
  if (const error_code error = watch->attach(*spawned, input)) {
    discard(spawned->pid, guardian_);
    return systemError(executable, error.value());
  }
  reactor_.post([watch] { watch->start(); });
  return std::shared_ptr<ChildProcess>(std::move(child));
}

}  // namespace zephyl

#include "System/SystemProcessLauncher.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <mutex>

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>

#include <sys/ioctl.h>
#include <sys/wait.h>

#include "System/Guardian.hpp"
#include "System/LineReader.hpp"
#include "System/Reactor.hpp"
#include "System/Secret.hpp"
#include "System/SpawnedChild.hpp"

namespace zephyl {

namespace {

namespace asio = boost::asio;
using boost::system::error_code;

/// How much of a child's output may be alive in memory before the child is not read from.
constexpr std::size_t maxOutstandingBytes = 256UL * 1024;

/// How much is read in one turn of the reactor. Small, since a line of one character takes many
/// times its size: this bounds by how much one turn can overdraw the allowance.
constexpr std::size_t bytesPerTurn = 16UL * 1024;

/// What the owner of a child sees. Knows nothing of the reactor, so it may outlive it.
class SystemChild final : public ChildProcess {
 public:
  explicit SystemChild(pid_t pid) : pid_(pid) {}

  [[nodiscard]] pid_t pid() const override { return pid_; }

  [[nodiscard]] bool isRunning() const override {
    const std::scoped_lock lock(mutex_);
    return !reaped_;
  }

  void terminate() override { signal(pid_, SIGTERM); }
  void terminateGroup() override { signal(-pid_, SIGTERM); }
  void killGroup() override { signal(-pid_, SIGKILL); }

  [[nodiscard]] bool waitForExit(Duration limit) override {
    std::unique_lock lock(mutex_);
    return ended_.wait_for(lock, limit, [this] { return reaped_; });
  }

  /// How it ended. It has, and stays a zombie: its id is still its own.
  [[nodiscard]] ExitStatus exitStatus() const {
    siginfo_t information{};
    ::waitid(P_PID, static_cast<id_t>(pid_), &information, WEXITED | WNOWAIT);
    const bool signalled = information.si_code == CLD_KILLED || information.si_code == CLD_DUMPED;
    return {signalled ? ExitStatus::Reason::signalled : ExitStatus::Reason::exited,
            information.si_status};
  }

  /// From here on the id may belong to another process, and no signal is sent any more.
  void reap() {
    {
      const std::scoped_lock lock(mutex_);
      ::waitpid(pid_, nullptr, 0);
      reaped_ = true;
    }
    ended_.notify_all();
  }

 private:
  void signal(pid_t target, int number) {
    const std::scoped_lock lock(mutex_);
    if (!reaped_) ::kill(target, number);
  }

  const pid_t pid_;
  mutable std::mutex mutex_;
  std::condition_variable ended_;
  bool reaped_ = false;
};

/// Counts the bytes of a child's lines that are alive. They come back on any thread, at any time.
class Allowance : public std::enable_shared_from_this<Allowance> {
 public:
  /// `resume` is called on whatever thread gives back.
  explicit Allowance(Task resume) : resume_(std::move(resume)) {}

  /// Takes `bytes` until the returned credit goes.
  std::shared_ptr<void> take(std::size_t bytes) {
    const std::scoped_lock lock(mutex_);
    outstanding_ += bytes;
    return std::make_shared<Credit>(shared_from_this(), bytes);
  }

  /// When there is none, `resume` is called once there is.
  [[nodiscard]] bool hasRoom() {
    const std::scoped_lock lock(mutex_);
    refused_ = outstanding_ >= maxOutstandingBytes;
    return !refused_;
  }

  /// `resume` is not called any more once this has returned.
  void close() {
    const std::scoped_lock lock(mutex_);
    resume_ = nullptr;
  }

 private:
  struct Credit {
    Credit(std::shared_ptr<Allowance> owner, std::size_t size)
        : allowance(std::move(owner)), bytes(size) {}
    ~Credit() { allowance->giveBack(bytes); }
    Credit(const Credit&) = delete;
    Credit& operator=(const Credit&) = delete;

    const std::shared_ptr<Allowance> allowance;
    const std::size_t bytes;
  };

  void giveBack(std::size_t bytes) {
    const std::scoped_lock lock(mutex_);
    outstanding_ -= bytes;
    if (!refused_ || outstanding_ >= maxOutstandingBytes) return;
    refused_ = false;
    if (resume_) resume_();
  }

  std::mutex mutex_;
  Task resume_;
  std::size_t outstanding_ = 0;
  bool refused_ = false;
};

/// What a batch takes up in memory, which for short lines is mostly the lines' own frames.
std::size_t costOf(const std::vector<std::string>& lines) {
  std::size_t cost = lines.size() * sizeof(std::string);
  for (const std::string& line : lines) cost += line.size();
  return cost;
}

/// Follows a child on the reactor's thread, until it has ended. Kept alive by what it waits for,
/// so it goes with the reactor at the latest.
class ChildWatch : public std::enable_shared_from_this<ChildWatch> {
 public:
  ChildWatch(asio::io_context& context, Guardian& guardian, std::shared_ptr<SystemChild> child,
             ProcessOptions options)
      : guardian_(guardian),
        process_(context),
        output_(context),
        child_(std::move(child)),
        tied_(options.lifetime == ProcessOptions::Lifetime::tied),
        onOutput_(std::move(options.onOutput)),
        onExit_(std::move(options.onExit)) {}
  ~ChildWatch() {
    if (allowance_) allowance_->close();
  }
  ChildWatch(const ChildWatch&) = delete;
  ChildWatch& operator=(const ChildWatch&) = delete;

  /// Takes over the descriptors.
  error_code attach(SpawnedChild& spawned) {
    error_code error;
    process_.assign(spawned.process.get(), error);
    if (error) return error;
    spawned.process.release();
    if (!spawned.output) return error;
    output_.assign(spawned.output.get(), error);
    if (error) return error;
    spawned.output.release();
    output_.native_non_blocking(true, error);
    return error;
  }

  void start() {
    process_.async_wait(asio::posix::descriptor_base::wait_read,
                        [self = shared_from_this()](const error_code& error) {
                          if (!error) self->conclude();
                        });
    if (!output_.is_open()) return;
    allowance_ =
        std::make_shared<Allowance>([executor = output_.get_executor(), weak = weak_from_this()] {
          asio::post(executor, [weak] {
            if (const auto self = weak.lock()) self->awaitOutput();
          });
        });
    awaitOutput();
  }

 private:
  void awaitOutput() {
    if (!output_.is_open() || !allowance_->hasRoom()) return;
    output_.async_wait(asio::posix::descriptor_base::wait_read,
                       [self = shared_from_this()](const error_code& error) {
                         if (error) return;
                         self->readOutput();
                         self->awaitOutput();
                       });
  }

  /// Reads once; how many bytes. At the end of the output, which may come long before that of the
  /// child, the pipe is closed.
  std::size_t readOutput() {
    std::array<char, bytesPerTurn> buffer;
    const ssize_t count = ::read(output_.native_handle(), buffer.data(), buffer.size());
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) return 0;
    if (count <= 0) {
      closeOutput();
      return 0;
    }
    const auto size = static_cast<std::size_t>(count);
    deliver(lines_.append({buffer.data(), size}));
    return size;
  }

  /// Reads what the pipe holds at this moment and no more: a descendant that got away may still
  /// be writing.
  void readRest() {
    int available = 0;
    if (!output_.is_open() || ::ioctl(output_.native_handle(), FIONREAD, &available) != 0) return;
    auto left = static_cast<std::size_t>(available);
    while (left > 0 && output_.is_open()) {
      const std::size_t count = readOutput();
      if (count == 0) break;
      left -= std::min(left, count);
    }
    closeOutput();
  }

  void closeOutput() {
    error_code ignored;
    output_.close(ignored);
  }

  void deliver(std::vector<std::string> lines) {
    if (lines.empty()) return;
    auto credit = allowance_->take(costOf(lines));
    onOutput_(OutputLines(std::move(lines), std::move(credit)));
  }

  /// The child has ended. As long as it is not reaped its id, and that of its group, is its own.
  void conclude() {
    const ExitStatus status = child_->exitStatus();
    if (tied_) {
      child_->killGroup();
      guardian_.remove(child_->pid());
    }
    readRest();
    child_->reap();
    deliver(lines_.finish());
    if (onExit_) onExit_(status);
  }

  Guardian& guardian_;
  asio::posix::stream_descriptor process_;
  asio::posix::stream_descriptor output_;
  const std::shared_ptr<SystemChild> child_;
  const bool tied_;
  const std::function<void(OutputLines)> onOutput_;
  const std::function<void(ExitStatus)> onExit_;
  LineReader lines_;
  std::shared_ptr<Allowance> allowance_;
};

}  // namespace

Result<std::shared_ptr<ChildProcess>> SystemProcessLauncher::launch(ProcessOptions options) {
  Result<SpawnedChild> spawned;
  reactor_.run([&] { spawned = spawn(options, guardian_); });
  const Result<void> started =
      spawned ? awaitProgram(*spawned, options, guardian_) : Result<void>(spawned.error());
  wipe(options.environment);  // some of it may be secret
  if (!started) return started.error();

  auto child = std::make_shared<SystemChild>(spawned->pid);
  const std::string executable = options.executable;
  const auto watch =
      std::make_shared<ChildWatch>(reactor_.context(), guardian_, child, std::move(options));
  if (const error_code error = watch->attach(*spawned)) {
    discard(spawned->pid, guardian_);
    return systemError(executable, error.value());
  }
  reactor_.post([watch] { watch->start(); });
  return std::shared_ptr<ChildProcess>(std::move(child));
}

}  // namespace zephyl

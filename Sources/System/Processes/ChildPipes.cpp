#include "System/Processes/ChildPipes.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include <boost/asio/post.hpp>

#include <sys/ioctl.h>
#include <unistd.h>

namespace zephyl {

namespace {

namespace asio = boost::asio;
using boost::system::error_code;

/// The size of a child's unconsumed output, in bytes, at which reading from the child pauses.
constexpr std::size_t maxOutstandingBytes = 256UL * 1024;

/// The number of bytes that are read in one turn of the reactor. Small, because a line of one
/// character occupies many times its size in memory, and one turn can exceed the allowance by that
/// much.
constexpr std::size_t bytesPerTurn = 16UL * 1024;

/// Returns the memory of a batch in bytes. Short lines consist mostly of their own string objects.
std::size_t costOf(const std::vector<std::string>& lines) {
  std::size_t cost = lines.size() * sizeof(std::string);
  for (const std::string& line : lines) cost += line.size();
  return cost;
}

error_code adopt(asio::posix::stream_descriptor& descriptor, FileDescriptor& end) {
  error_code error;
  descriptor.assign(end.get(), error);
  if (error) return error;
  end.release();
  descriptor.native_non_blocking(true, error);
  return error;
}

}  // namespace

/// Counts the bytes of a child's lines that are alive. Credits are released on any thread, at any
/// time.
class OutputPipe::Allowance : public std::enable_shared_from_this<Allowance> {
 public:
  /// `resume` is called on the thread that releases a credit.
  explicit Allowance(Task resume) : resume_(std::move(resume)) {}

  /// Counts `bytes` as outstanding until the returned credit is destroyed.
  std::shared_ptr<void> acquire(std::size_t bytes) {
    const std::scoped_lock lock(mutex_);
    outstanding_ += bytes;
    return std::make_shared<Credit>(shared_from_this(), bytes);
  }

  /// Returns whether reading may continue. If not, `resume` is called as soon as it may.
  [[nodiscard]] bool hasRoom() {
    const std::scoped_lock lock(mutex_);
    refused_ = outstanding_ >= maxOutstandingBytes;
    return !refused_;
  }

  /// After it returns, `resume` is not called any more.
  void close() {
    const std::scoped_lock lock(mutex_);
    resume_ = nullptr;
  }

 private:
  struct Credit {
    Credit(std::shared_ptr<Allowance> owner, std::size_t size)
        : allowance(std::move(owner)), bytes(size) {}
    ~Credit() { allowance->release(bytes); }
    Credit(const Credit&) = delete;
    Credit& operator=(const Credit&) = delete;

    const std::shared_ptr<Allowance> allowance;
    const std::size_t bytes;
  };

  void release(std::size_t bytes) {
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

OutputPipe::OutputPipe(asio::io_context& context, std::size_t maxLineBytes,
                       std::function<void(OutputLines)> onOutput)
    : descriptor_(context), onOutput_(std::move(onOutput)), lines_(maxLineBytes) {}

OutputPipe::~OutputPipe() {
  if (allowance_) allowance_->close();
}

error_code OutputPipe::attach(FileDescriptor& readingEnd) {
  return adopt(descriptor_, readingEnd);
}

void OutputPipe::start() {
  allowance_ =
      std::make_shared<Allowance>([executor = descriptor_.get_executor(), weak = weak_from_this()] {
        asio::post(executor, [weak] {
          if (const auto self = weak.lock()) self->await();
        });
      });
  await();
}

void OutputPipe::await() {
  if (!descriptor_.is_open() || !allowance_->hasRoom()) return;
  descriptor_.async_wait(asio::posix::descriptor_base::wait_read,
                         [self = shared_from_this()](const error_code& error) {
                           if (error) return;
                           self->read();
                           self->await();
                         });
}

/// Reads once and returns the number of bytes. Closes the pipe at the end of the output, which may
/// be long before the end of the child.
std::size_t OutputPipe::read() {
  std::array<char, bytesPerTurn> buffer;
  const ssize_t count = ::read(descriptor_.native_handle(), buffer.data(), buffer.size());
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return 0;
  if (count <= 0) {
    close();
    return 0;
  }
  const auto size = static_cast<std::size_t>(count);
  deliver(lines_.append({buffer.data(), size}));
  ::explicit_bzero(buffer.data(), size);  // some of it may be secret
  return size;
}

void OutputPipe::readRest() {
  int available = 0;
  if (!descriptor_.is_open() || ::ioctl(descriptor_.native_handle(), FIONREAD, &available) != 0) {
    return;
  }
  auto left = static_cast<std::size_t>(available);
  while (left > 0 && descriptor_.is_open()) {
    const std::size_t count = read();
    if (count == 0) break;
    left -= std::min(left, count);
  }
  close();
}

void OutputPipe::finish() {
  deliver(lines_.finish());
}

void OutputPipe::close() {
  error_code ignored;
  descriptor_.close(ignored);
}

void OutputPipe::deliver(std::vector<std::string> lines) {
  if (lines.empty()) return;
  auto credit = allowance_->acquire(costOf(lines));
  onOutput_(OutputLines(std::move(lines), std::move(credit)));
}

void InputBuffer::append(std::string_view line) {
  const std::scoped_lock lock(mutex_);
  if (content_.ends || !wake_) return;
  content_.text.append(line).push_back('\n');
  wake_();
}

void InputBuffer::end() {
  const std::scoped_lock lock(mutex_);
  content_.ends = true;
  if (wake_) wake_();
}

InputBuffer::Content InputBuffer::drain() {
  const std::scoped_lock lock(mutex_);
  return {std::exchange(content_.text, {}), content_.ends};
}

void InputBuffer::setWake(Task wake) {
  const std::scoped_lock lock(mutex_);
  wake_ = std::move(wake);
}

InputPipe::InputPipe(asio::io_context& context, std::shared_ptr<InputBuffer> buffer)
    : descriptor_(context), buffer_(std::move(buffer)) {}

error_code InputPipe::attach(FileDescriptor& writingEnd) {
  const error_code error = adopt(descriptor_, writingEnd);
  if (error) return error;
  buffer_->setWake([executor = descriptor_.get_executor(), weak = weak_from_this()] {
    asio::post(executor, [weak] {
      if (const auto self = weak.lock()) self->pump();
    });
  });
  return error;
}

void InputPipe::close() {
  buffer_->setWake(nullptr);
  error_code ignored;
  descriptor_.close(ignored);
}

void InputPipe::pump() {
  while (descriptor_.is_open() && !waiting_) {
    if (written_ == content_.text.size()) {
      content_ = buffer_->drain();
      written_ = 0;
    }
    if (content_.text.empty()) {
      if (content_.ends) close();
      return;
    }
    write();
  }
}

/// Writes once. Closes the pipe if it has no reader any more.
void InputPipe::write() {
  const std::string_view rest = std::string_view(content_.text).substr(written_);
  const ssize_t count = ::write(descriptor_.native_handle(), rest.data(), rest.size());
  if (count >= 0) {
    written_ += static_cast<std::size_t>(count);
  } else if (errno == EAGAIN) {
    awaitRoom();
  } else if (errno != EINTR) {
    close();
  }
}

void InputPipe::awaitRoom() {
  waiting_ = true;
  descriptor_.async_wait(asio::posix::descriptor_base::wait_write,
                         [self = shared_from_this()](const error_code&) {
                           self->waiting_ = false;
                           self->pump();
                         });
}

}  // namespace zephyl

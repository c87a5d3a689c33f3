#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/system/error_code.hpp>

#include "System/Data/LineReader.hpp"
#include "System/Files/FileDescriptor.hpp"
#include "System/Processes/ChildProcess.hpp"

/// The tray's ends of the pipes to a child. Everything runs on the reactor's thread unless stated
/// otherwise.
namespace zephyl {

/// Reads a child's output as lines, no faster than the lines are consumed. Its pending operations
/// keep it alive, so it is destroyed with the reactor at the latest.
class OutputPipe : public std::enable_shared_from_this<OutputPipe> {
 public:
  OutputPipe(boost::asio::io_context& context, std::size_t maxLineBytes,
             std::function<void(OutputLines)> onOutput);
  ~OutputPipe();
  OutputPipe(const OutputPipe&) = delete;
  OutputPipe& operator=(const OutputPipe&) = delete;

  /// Takes ownership of the reading end.
  boost::system::error_code attach(FileDescriptor& readingEnd);
  void start();
  /// Reads only the bytes that the pipe holds at this moment, because a descendant that escaped the
  /// process group may still be writing.
  void readRest();
  /// Delivers the unterminated last line.
  void finish();

 private:
  class Allowance;

  void await();
  std::size_t read();
  void close();
  void deliver(std::vector<std::string> lines);

  boost::asio::posix::stream_descriptor descriptor_;
  const std::function<void(OutputLines)> onOutput_;
  LineReader lines_;
  std::shared_ptr<Allowance> allowance_;
};

/// Bytes that are still to be written to a child. `append` and `end` are callable from any thread.
/// Independent of the reactor, so it may outlive it.
class InputBuffer {
 public:
  struct Content {
    std::string text;
    bool ends = false;  ///< the input ends after `text`
  };

  void append(std::string_view line);
  void end();
  Content drain();

  /// Sets the function that is called, on the caller's thread, after `append` and `end`. The
  /// previous function is not called any more once this has returned.
  void setWake(Task wake);

 private:
  std::mutex mutex_;
  Task wake_;
  Content content_;
};

/// Writes the contents of the buffer to a child, as fast as the child reads. Its pending operations
/// keep it alive, as with OutputPipe.
class InputPipe : public std::enable_shared_from_this<InputPipe> {
 public:
  InputPipe(boost::asio::io_context& context, std::shared_ptr<InputBuffer> buffer);
  ~InputPipe() { buffer_->setWake(nullptr); }
  InputPipe(const InputPipe&) = delete;
  InputPipe& operator=(const InputPipe&) = delete;

  /// Takes ownership of the writing end.
  boost::system::error_code attach(FileDescriptor& writingEnd);
  /// Closes the pipe. Must be called when the child has ended.
  void close();

 private:
  void pump();
  void write();
  void awaitRoom();

  boost::asio::posix::stream_descriptor descriptor_;
  const std::shared_ptr<InputBuffer> buffer_;
  InputBuffer::Content content_;  // drained from the buffer
  std::size_t written_ = 0;       // bytes of `content_`
  bool waiting_ = false;
};

}  // namespace zephyl

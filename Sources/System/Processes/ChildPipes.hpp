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

/// The tray's ends of the pipes to a child. Everything is for the reactor's thread, except where it
/// says otherwise.
namespace zephyl {

/// Reads what a child prints, as lines, and no faster than they are taken. Kept alive by what it
/// waits for, so it goes with the reactor at the latest.
class OutputPipe : public std::enable_shared_from_this<OutputPipe> {
 public:
  OutputPipe(boost::asio::io_context& context, std::size_t maxLineBytes,
             std::function<void(OutputLines)> onOutput);
  ~OutputPipe();
  OutputPipe(const OutputPipe&) = delete;
  OutputPipe& operator=(const OutputPipe&) = delete;

  /// Takes over the reading end.
  boost::system::error_code attach(FileDescriptor& readingEnd);
  void start();
  /// Reads what the pipe holds at this moment and no more: a descendant that got away may still
  /// be writing.
  void readRest();
  /// Delivers the line that has no end.
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

/// What is still to be written to a child. Filled on any thread; knows nothing of the reactor, so
/// it may outlive it.
class InputBuffer {
 public:
  struct Content {
    std::string text;
    bool ends = false;  ///< nothing will follow
  };

  void append(std::string_view line);
  void end();
  Content take();

  /// `wake` is called on whatever thread fills, and not any more once it is set to another.
  void setWake(Task wake);

 private:
  std::mutex mutex_;
  Task wake_;
  Content content_;
};

/// Writes what the buffer holds to a child, as fast as the child reads. Owned and kept alive as
/// the pipe for output is.
class InputPipe : public std::enable_shared_from_this<InputPipe> {
 public:
  InputPipe(boost::asio::io_context& context, std::shared_ptr<InputBuffer> buffer);
  ~InputPipe() { buffer_->setWake(nullptr); }
  InputPipe(const InputPipe&) = delete;
  InputPipe& operator=(const InputPipe&) = delete;

  /// Takes over the writing end.
  boost::system::error_code attach(FileDescriptor& writingEnd);
  /// The child has ended.
  void close();

 private:
  void pump();
  void write();
  void awaitRoom();

  boost::asio::posix::stream_descriptor descriptor_;
  const std::shared_ptr<InputBuffer> buffer_;
  InputBuffer::Content content_;  // taken from the buffer
  std::size_t written_ = 0;       // of it
  bool waiting_ = false;
};

}  // namespace zephyl

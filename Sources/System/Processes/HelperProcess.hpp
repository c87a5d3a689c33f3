#pragma once

#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <utility>

#include "System/Data/JSON.hpp"
#include "System/Processes/ChildProcess.hpp"

namespace zephyl {

class MainLoop;

/// The options of a helper program.
struct HelperOptions {
  std::string name;        ///< of the program, for log lines
  ProcessOptions process;  ///< `HelperProcess` sets its callbacks and `hasInput`
  int maxErrorLines =
      std::numeric_limits<int>::max();  ///< how many lines of standard error are logged
};

/// The part of HelperProcess that does not depend on the types of the messages: a child and the
/// lines of its input and output. Main thread only.
class HelperLines {
 public:
  struct Events {
    /// Called with each line of the program's standard output.
    std::function<void(const std::string& line)> line;
    /// Called if the program could not be started.
    std::function<void(const std::string& reason)> failed;
    /// Called once, after the last line, with a description of how the program ended.
    std::function<void(const std::string& how)> ended;
  };

  /// `mainLoop` must outlive it.
  HelperLines(MainLoop& mainLoop, ProcessLauncher& launcher, HelperOptions options, Events events);
  /// Closes the program's input. No event is called afterwards.
  ~HelperLines();
  HelperLines(const HelperLines&) = delete;
  HelperLines& operator=(const HelperLines&) = delete;

  /// The following functions do nothing if the program could not be started.
  void write(const std::string& line);
  void endInput();
  void killGroup();

 private:
  void launch(ProcessLauncher& launcher, ProcessOptions options);

  MainLoop& mainLoop_;
  const std::shared_ptr<Events> events_;  // weakly held by callbacks, so that they end with this
  std::shared_ptr<ChildProcess> child_;
};

/// One run of a helper program. The program reads messages from its standard input and writes
/// messages to its standard output, one JSON object a line. Its standard error goes to the log.
/// `Protocol` names the messages, which are types that `json::encode` and `json::decode` accept:
///
///     struct Protocol {
///       using Request = std::variant<...>;  // the first message to the program
///       using Order = std::variant<...>;    // later messages to the program; optional
///       using Report = std::variant<...>;   // messages from the program
///     };
///
/// The program uses `JSONLines` for its side. Texts in messages must be valid UTF-8.
///
/// Main thread only. Events are called on the main thread after the constructor has returned. They
/// may destroy the helper process. Destroying it closes the program's input, and no event is called
/// afterwards.
template <typename Protocol>
class HelperProcess {
 public:
  using Request = typename Protocol::Request;
  using Report = typename Protocol::Report;

  struct Events {
    std::function<void(Report)> reported;
    /// Called if the program could not be started, and with each line that is not a `Report`.
    std::function<void(const std::string& reason)> failed;
    /// Called once, after the last report, with a description such as "it ended with status 1".
    std::function<void(const std::string& how)> ended;
  };

  /// Starts the program and sends it `request`. `mainLoop` must outlive it.
  HelperProcess(MainLoop& mainLoop, ProcessLauncher& launcher, HelperOptions options,
                const Request& request, Events events)
      : lines_(mainLoop, launcher, std::move(options), lineEvents(std::move(events))) {
    lines_.write(json::compact(json::encode(request)));
  }

  /// Sends a message. Messages that are unread when the program ends are lost.
  template <typename P = Protocol>
  void send(const typename P::Order& order) {
    lines_.write(json::compact(json::encode(order)));
  }
  /// Closes the program's input after all sent messages.
  void endInput() { lines_.endInput(); }
  /// Kills the program and all processes of its group.
  void kill() { lines_.killGroup(); }

 private:
  static HelperLines::Events lineEvents(Events events) {
    auto line = [reported = std::move(events.reported),
                 failed = events.failed](const std::string& text) {
      auto report = json::decodeText<Report>(text);
      if (!report) return failed("it sent an invalid message: " + report.error().message);
      reported(std::move(*report));
    };
    return {std::move(line), std::move(events.failed), std::move(events.ended)};
  }

  HelperLines lines_;
};

}  // namespace zephyl

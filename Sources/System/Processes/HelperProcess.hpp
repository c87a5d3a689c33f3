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

/// How a helper program is run.
struct HelperOptions {
  std::string name;        ///< of the program, as it stands in the log
  ProcessOptions process;  ///< its callbacks and `hasInput` are set by the helper process
  int maxErrorLines = std::numeric_limits<int>::max();  ///< of its standard error that are logged
};

/// The part of a helper process that does not depend on the types of the messages: a child and
/// the lines of its input and output. Main thread.
class HelperLines {
 public:
  struct Events {
    /// Called with each line of the program's standard output.
    std::function<void(const std::string& line)> line;
    /// Called if the program could not be started.
    std::function<void(const std::string& reason)> failed;
    /// Called once, after the last line, with how the program ended.
    std::function<void(const std::string& how)> ended;
  };

  /// `mainLoop` outlives it.
  HelperLines(MainLoop& mainLoop, ProcessLauncher& launcher, HelperOptions options, Events events);
  /// Ends the program's input. No event is called afterwards.
  ~HelperLines();
  HelperLines(const HelperLines&) = delete;
  HelperLines& operator=(const HelperLines&) = delete;

  /// The following do nothing if the program could not be started.
  void write(const std::string& line);
  void endInput();
  void killGroup();

 private:
  void launch(ProcessLauncher& launcher, ProcessOptions options);

  MainLoop& mainLoop_;
  const std::shared_ptr<Events> events_;  // expires with this
  std::shared_ptr<ChildProcess> child_;
};

/// One run of a helper program: a program that reads messages on its standard input and writes
/// messages on its standard output, one JSON object a line, and whose standard error goes to the
/// log. `Protocol` names the messages, types that `json::encode` and `json::decode` accept:
///
///     struct Protocol {
///       using Request = std::variant<...>;  // what the program is started with
///       using Order = std::variant<...>;    // what may follow; may be missing
///       using Report = std::variant<...>;   // what the program writes
///     };
///
/// The program uses `JSONLines` for its side. Texts in messages must be valid UTF-8.
///
/// Main thread. Events are called on it, later than the constructor returns. They may destroy the
/// helper process, which ends the program's input; no event is called afterwards.
template <typename Protocol>
class HelperProcess {
 public:
  using Request = typename Protocol::Request;
  using Report = typename Protocol::Report;

  struct Events {
    std::function<void(Report)> reported;
    /// Called if the program could not be started, and with each line that is not a `Report`.
    std::function<void(const std::string& reason)> failed;
    /// Called once, after the last report, with how the program ended: "it ended with status 1".
    std::function<void(const std::string& how)> ended;
  };

  /// Starts the program and sends it `request`. `mainLoop` outlives it.
  HelperProcess(MainLoop& mainLoop, ProcessLauncher& launcher, HelperOptions options,
                const Request& request, Events events)
      : lines_(mainLoop, launcher, std::move(options), lineEvents(std::move(events))) {
    lines_.write(json::compact(json::encode(request)));
  }

  /// Sends a message. Messages that the program has not read when it ends are lost.
  template <typename P = Protocol>
  void send(const typename P::Order& order) {
    lines_.write(json::compact(json::encode(order)));
  }
  /// Ends the program's input after what was sent.
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

#include "Helpers/Updates/Client/UpdaterRun.hpp"

#include <utility>

#include "System/Concurrency/MainLoop.hpp"
#include "System/Data/JSON.hpp"
#include "System/Files/Log.hpp"

namespace zephyl {

namespace {

/// Release notes with every character escaped.
constexpr std::size_t maxReportBytes = 64UL * 1024;

template <typename Work>
std::function<void()> whileAlive(const std::weak_ptr<UpdaterRun>& run, Work work) {
  return [run, work = std::move(work)] {
    if (const auto self = run.lock()) work(*self);
  };
}

}  // namespace

std::shared_ptr<UpdaterRun> UpdaterRun::start(MainLoop& mainLoop, ProcessLauncher& launcher,
                                              const std::string& program,
                                              const UpdateCommand& command, Tell tell) {
  auto run = std::make_shared<UpdaterRun>(mainLoop, std::move(tell));
  run->launch(launcher, program, command);
  return run;
}

UpdaterRun::~UpdaterRun() {
  if (child_) child_->closeInput();
}

void UpdaterRun::launch(ProcessLauncher& launcher, const std::string& program,
                        const UpdateCommand& command) {
  auto options = updaterOptions(program);
  options.maxLineBytes = maxReportBytes;
  options.onOutput = [&loop = mainLoop_, weak = weak_from_this()](OutputLines lines) {
    auto held = std::make_shared<OutputLines>(std::move(lines));
    loop.async(whileAlive(weak, [held](UpdaterRun& run) {
      for (const auto& line : held->lines()) run.takeLine(line);
    }));
  };
  options.onErrorOutput = [](const OutputLines& lines) {
    for (const auto& line : lines.lines()) log("zephyl-tray-updater: {}", line);
  };
  options.onExit = [&loop = mainLoop_, weak = weak_from_this()](ExitStatus) {
    loop.async(whileAlive(weak, [](UpdaterRun& run) { run.fail("It ended without a word."); }));
  };
  auto child = launcher.launch(std::move(options));
  if (!child) {
    mainLoop_.async(whileAlive(
        weak_from_this(), [reason = child.error().message](UpdaterRun& run) { run.fail(reason); }));
    return;
  }
  child_ = std::move(*child);
  child_->write(json::compact(json::encode(command)));
}

void UpdaterRun::takeLine(const std::string& line) {
  if (!tell_) return;
  auto report = json::decodeText<UpdateReport>(line);
  if (!report) return fail("It does not speak the language: " + report.error().message);
  if (report->progress) return tell_(std::move(*report));
  std::exchange(tell_, nullptr)(std::move(*report));
}

void UpdaterRun::fail(const std::string& reason) {
  if (tell_) std::exchange(tell_, nullptr)({.failed = "The updater cannot be used. " + reason});
}

ProcessOptions updaterOptions(const std::string& program) {
  ProcessOptions options;
  options.executable = program;
  options.environment = currentEnvironment();
  options.lifetime = ProcessOptions::Lifetime::independent;
  options.hasInput = true;
  return options;
}

}  // namespace zephyl

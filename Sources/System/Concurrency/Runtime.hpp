#pragma once

namespace zephyl {

class Clock;
class MainLoop;
class ProcessLauncher;
class Reactor;
class ThreadPool;

/// What the components run on: made by `main` before the first of them, outliving them all.
/// Tests put a clock and a launcher of their own here.
struct Runtime {
  MainLoop& mainLoop;
  Reactor& reactor;
  ThreadPool& pool;
  Clock& clock;
  ProcessLauncher& launcher;
};

}  // namespace zephyl

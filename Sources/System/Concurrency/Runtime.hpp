#pragma once

namespace zephyl {

class Clock;
class MainLoop;
class ProcessLauncher;
class Reactor;
class ThreadPool;

/// The facilities that the components share. Made by `main` before the components, and outlives
/// them. Tests substitute the clock and the launcher.
struct Runtime {
  MainLoop& mainLoop;
  Reactor& reactor;
  ThreadPool& pool;
  Clock& clock;
  ProcessLauncher& launcher;
};

}  // namespace zephyl

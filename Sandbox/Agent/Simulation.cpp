#include "Agent/Simulation.hpp"

#include <utility>

namespace zephyl::sandbox {
namespace asio = boost::asio;
using namespace std::chrono_literals;
namespace {

constexpr auto tickInterval = 100ms;

}  // namespace

Simulation::Simulation(const asio::any_io_executor& executor, const Behavior& behavior,
                       Folders& folders, Events events)
    : executor_(executor),
      filesEmbeddedPerSecond_(behavior.filesEmbeddedPerSecond),
      folders_(folders),
      events_(std::move(events)),
      model_(behavior.model) {}

void Simulation::start() {
  if (isRunning_ || !hasWork()) return;
  isRunning_ = true;
  asio::co_spawn(executor_, run(), asio::detached);
}

void Simulation::forceBusy(std::chrono::milliseconds duration) {
  busyUntil_ = steady_clock::now() + duration;
}

bool Simulation::isForcedBusy() const {
  return busyUntil_ && steady_clock::now() < *busyUntil_;
}

bool Simulation::isEmbedding() const {
  return model_.isReady() && folders_.isEmbeddingOutstanding();
}

bool Simulation::hasWork() const {
  return !model_.isSettled() || isEmbedding() || busyUntil_;
}

asio::awaitable<void> Simulation::run() {
  while (hasWork()) {
    const auto began = steady_clock::now();
    co_await pause(tickInterval);
    advance(std::chrono::duration<double>(steady_clock::now() - began).count());
    events_.advanced();
  }
  isRunning_ = false;
}

void Simulation::advance(double seconds) {
  if (busyUntil_ && !isForcedBusy()) busyUntil_.reset();
  if (!model_.isSettled()) {
    model_.advance(seconds);
    if (model_.isSettled()) events_.modelSettled();
  }
  if (!model_.isReady()) return;
  const auto finished = folders_.embed(filesEmbeddedPerSecond_ * seconds);
  if (!finished.empty()) events_.embedded(finished);
}

}  // namespace zephyl::sandbox

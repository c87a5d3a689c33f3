#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <vector>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>

#include "Agent/EmbeddingModel.hpp"
#include "Agent/Folders.hpp"
#include "Common/Async.hpp"

namespace zephyl::sandbox {

/// The agent's simulated work, in real time: it loads the model, embeds folders once the model is
/// ready, and can be kept busy. Runs only while there is work. Must be used on the thread of its
/// executor, and must outlive the executor's tasks, as must `folders`.
class Simulation {
 public:
  struct Events {
    /// Called when the model is ready or has failed.
    std::function<void()> modelSettled;
    /// Called with the folders that are completely embedded now.
    std::function<void(const std::vector<SharedRoot>& folders)> embedded;
    /// Called after each step.
    std::function<void()> advanced;
  };

  struct Behavior {
    EmbeddingModel::Behavior model;
    double filesEmbeddedPerSecond = 0;
  };

  Simulation(const boost::asio::any_io_executor& executor, const Behavior& behavior,
             Folders& folders, Events events);
  Simulation(const Simulation&) = delete;
  Simulation& operator=(const Simulation&) = delete;

  /// Continues the work. Must be called when there may be new work in the folders. Does nothing if
  /// the work is under way or there is none.
  void start();
  /// Is busy for this duration from now. Zero ends it.
  void forceBusy(std::chrono::milliseconds duration);

  [[nodiscard]] const EmbeddingModel& model() const { return model_; }
  /// Returns whether it embeds, or is forced to be busy.
  [[nodiscard]] bool isBusy() const { return isEmbedding() || isForcedBusy(); }

 private:
  [[nodiscard]] bool isForcedBusy() const;
  [[nodiscard]] bool isEmbedding() const;
  [[nodiscard]] bool hasWork() const;
  boost::asio::awaitable<void> run();
  void advance(double seconds);

  boost::asio::any_io_executor executor_;
  double filesEmbeddedPerSecond_;
  Folders& folders_;
  const Events events_;
  EmbeddingModel model_;
  std::optional<steady_clock::time_point> busyUntil_;
  bool isRunning_ = false;
};

}  // namespace zephyl::sandbox

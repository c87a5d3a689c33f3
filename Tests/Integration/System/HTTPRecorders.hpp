#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "System/Network/HTTPSession.hpp"

namespace zephyl::test {

/// The time-out of a test for expected events.
constexpr std::chrono::seconds patience{30};

/// Records the result of a `send`. Copies share the record.
class AnswerRecorder {
 public:
  [[nodiscard]] std::function<void(Result<ClientResponse>)> done() const {
    return [state = state_](Result<ClientResponse> answer) {
      const std::lock_guard lock(state->mutex);
      ++state->count;
      state->answer = std::move(answer);
      state->changed.notify_all();
    };
  }

  [[nodiscard]] Result<ClientResponse> wait() const {
    std::unique_lock lock(state_->mutex);
    if (!state_->changed.wait_for(lock, patience, [this] { return state_->count > 0; }))
      return Error{"no callback"};
    return state_->answer;
  }

  [[nodiscard]] int count() const {
    const std::lock_guard lock(state_->mutex);
    return state_->count;
  }

 private:
  struct State {
    std::mutex mutex;
    std::condition_variable changed;
    int count = 0;
    Result<ClientResponse> answer = Error{"none yet"};
  };
  std::shared_ptr<State> state_ = std::make_shared<State>();
};

/// Records the events of a `stream`. Copies share the record.
class StreamRecorder {
 public:
  struct Record {
    std::vector<int> statuses;
    std::vector<std::string> lines;
    std::vector<std::optional<Error>> ends;
  };

  /// `wanted` is the result of the status callback.
  [[nodiscard]] StreamHandlers handlers(bool wanted = true) const {
    const auto change = [state = state_](auto&& apply) {
      const std::lock_guard lock(state->mutex);
      apply(state->record);
      state->changed.notify_all();
    };
    return {.onStatus =
                [=](int status) {
                  change([&](Record& record) { record.statuses.push_back(status); });
                  return wanted;
                },
            .onLine =
                [=](std::string_view line) {
                  change([&](Record& record) { record.lines.emplace_back(line); });
                },
            .onEnd =
                [=](const std::optional<Error>& error) {
                  change([&](Record& record) { record.ends.push_back(error); });
                }};
  }

  /// Waits for the end of the stream.
  [[nodiscard]] Record wait() const {
    return waitFor([](const Record& record) { return !record.ends.empty(); });
  }

  [[nodiscard]] Record waitForLines(std::size_t count) const {
    return waitFor([&](const Record& record) { return record.lines.size() >= count; });
  }

  [[nodiscard]] Record now() const {
    const std::lock_guard lock(state_->mutex);
    return state_->record;
  }

 private:
  struct State {
    std::mutex mutex;
    std::condition_variable changed;
    Record record;
  };

  [[nodiscard]] Record waitFor(const std::function<bool(const Record&)>& condition) const {
    std::unique_lock lock(state_->mutex);
    state_->changed.wait_for(lock, patience, [&] { return condition(state_->record); });
    return state_->record;
  }

  std::shared_ptr<State> state_ = std::make_shared<State>();
};

}  // namespace zephyl::test

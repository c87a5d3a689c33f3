#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "Agent/Records.hpp"

namespace zephyl::sandbox {

/// The agent's recent actions, at most 20, newest last, and counters of its actions.
class Journal {
 public:
  /// Sets the event's time to now.
  void record(ActivityEvent event) {
    constexpr std::size_t maxEvents = 20;
    event.at = millisecondsSinceEpoch();
    if (recent_.size() == maxEvents) recent_.erase(recent_.begin());
    recent_.push_back(std::move(event));
  }
  void count(const std::string& counter) { ++counters_[counter]; }

  [[nodiscard]] const std::vector<ActivityEvent>& recent() const { return recent_; }
  [[nodiscard]] const std::map<std::string, std::int64_t>& counters() const { return counters_; }

 private:
  std::vector<ActivityEvent> recent_;
  std::map<std::string, std::int64_t> counters_{{"requests", 0},  {"approved", 0}, {"denied", 0},
                                                {"withdrawn", 0}, {"passed", 0},   {"searches", 0}};
};

}  // namespace zephyl::sandbox

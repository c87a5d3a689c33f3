#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "Agent/Records.hpp"

namespace zephyl::sandbox {

/// What the agent did lately, newest last and at most 20 entries, and how often it did what.
class Journal {
 public:
  /// Stamps the event with the present time.
  void record(ActivityEvent event);
  void count(std::string_view counter);

  const std::deque<ActivityEvent>& recent() const { return recent_; }
  const std::map<std::string, std::int64_t, std::less<>>& counters() const { return counters_; }

 private:
  std::deque<ActivityEvent> recent_;
  std::map<std::string, std::int64_t, std::less<>> counters_{{"requests", 0}, {"approved", 0},
                                                             {"denied", 0},   {"withdrawn", 0},
                                                             {"passed", 0},   {"searches", 0}};
};

}  // namespace zephyl::sandbox

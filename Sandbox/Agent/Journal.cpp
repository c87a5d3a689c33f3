#include "Agent/Journal.hpp"

#include <cstddef>
#include <utility>

namespace zephyl::sandbox {
namespace {

constexpr std::size_t capacity = 20;

}  // namespace

void Journal::record(ActivityEvent event) {
  event.at = millisecondsSinceEpoch();
  recent_.push_back(std::move(event));
  if (recent_.size() > capacity) recent_.pop_front();
}

void Journal::count(std::string_view counter) {
  ++counters_.try_emplace(std::string(counter)).first->second;
}

}  // namespace zephyl::sandbox

#include "System/Concurrency/TaskWatch.hpp"

#include <utility>

#include <boost/core/demangle.hpp>

#include "System/Data/Text.hpp"

namespace zephyl {

namespace {

/// A limit for type names, which repeat the names of all template arguments.
constexpr std::size_t maxNameBytes = 300;

}  // namespace

void TaskWatch::begin(const std::type_info& task) {
  task_ = &task;
  began_ = now_();
  reported_ = false;
}

std::optional<TaskWatch::Overrun> TaskWatch::end() {
  auto overrun = check();
  task_ = nullptr;
  return overrun;
}

std::optional<TaskWatch::Overrun> TaskWatch::check() {
  if (task_ == nullptr || reported_) return std::nullopt;
  const Duration time = now_() - began_;
  if (time <= limit) return std::nullopt;
  reported_ = true;
  return Overrun{.task = shortened(boost::core::demangle(task_->name()), maxNameBytes),
                 .time = time};
}

}  // namespace zephyl

#include "Desktop/Freedesktop/ActivationTokens.hpp"

#include <utility>

namespace zephyl {

ActivationTokens::ActivationTokens(Clock& clock, std::string started)
    : clock_(clock), current_(std::move(started)) {}

void ActivationTokens::provide(const std::string& token) {
  provided_ = token;
  providedAt_ = clock_.now();
}

std::string ActivationTokens::consumeProvided() {
  auto token = std::exchange(provided_, {});
  return clock_.now() - providedAt_ < lifetime ? token : "";
}

void ActivationTokens::handle(const std::string& token, const Task& handler) {
  current_ = token;
  handler();
  current_.clear();
}

std::string ActivationTokens::consume() {
  return std::exchange(current_, {});
}

}  // namespace zephyl

#include "System/Data/LogRing.hpp"

namespace zephyl {

void LogRing::append(std::string line) {
  if (line.size() > maxBytes) return;
  bytes_ += line.size();
  lines_.push_back(std::move(line));
  while (lines_.size() > maxLines || bytes_ > maxBytes) {
    bytes_ -= lines_.front().size();
    lines_.pop_front();
  }
}

}  // namespace zephyl

#include "System/Data/LogRing.hpp"

#include <algorithm>

namespace zephyl {

void LogRing::append(std::string line) {
  if (line.size() > maxBytes) return;
  bytes_ += line.size();
  ++end_;
  lines_.push_back(std::move(line));
  while (lines_.size() > maxLines || bytes_ > maxBytes) {
    bytes_ -= lines_.front().size();
    lines_.pop_front();
  }
}

LogTail LogRing::since(std::uint64_t position) const {
  const std::uint64_t first = end_ - lines_.size();
  const std::uint64_t wanted = position > end_ ? 0 : position;
  const std::uint64_t from = std::max(wanted, first);
  const auto begin = lines_.begin() + static_cast<std::ptrdiff_t>(from - first);
  return {.skipped = from - wanted, .lines = {begin, lines_.end()}, .end = end_};
}

}  // namespace zephyl

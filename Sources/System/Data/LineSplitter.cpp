#include "System/Data/LineSplitter.hpp"

#include <utility>

namespace zephyl {

std::optional<std::string_view> LineSplitter::next(std::string_view& bytes) {
  while (true) {
    const auto end = bytes.find('\n');
    if (end == std::string_view::npos) {
      keep(bytes);
      bytes = {};
      return std::nullopt;
    }
    const auto piece = bytes.substr(0, end);
    bytes.remove_prefix(end + 1);
    if (const auto line = complete(piece)) return line;
  }
}

std::optional<std::string_view> LineSplitter::rest() {
  if (begun_.empty()) return std::nullopt;
  return complete({});
}

void LineSplitter::keep(std::string_view piece) {
  // One byte more than the limit, because the last one may be the CR of the line end.
  skipping_ = skipping_ || begun_.size() + piece.size() > maxLineBytes_ + 1;
  if (skipping_) {
    begun_ = {};
  } else {
    begun_ += piece;
  }
}

std::optional<std::string_view> LineSplitter::complete(std::string_view piece) {
  if (!begun_.empty()) {
    keep(piece);
    std::swap(line_, begun_);
    begun_.clear();
    piece = line_;
  }
  if (std::exchange(skipping_, false)) return std::nullopt;
  if (piece.ends_with('\r')) piece.remove_suffix(1);
  if (piece.size() > maxLineBytes_) return std::nullopt;
  return piece;
}

}  // namespace zephyl

#include "System/Data/LineReader.hpp"

#include "System/Data/Text.hpp"

namespace zephyl {

namespace {

/// The number of bytes that follow the first one in the longest UTF-8 character.
constexpr std::size_t maxContinuationBytes = 3;

std::string_view withoutCarriageReturn(std::string_view line) {
  if (line.ends_with('\r')) line.remove_suffix(1);
  return line;
}

}  // namespace

std::vector<std::string> LineReader::append(std::string_view bytes) {
  std::vector<std::string> lines;
  for (auto end = bytes.find('\n'); end != std::string_view::npos; end = bytes.find('\n')) {
    add(lines, withoutCarriageReturn(join(bytes.substr(0, end))));
    partial_.clear();
    bytes.remove_prefix(end + 1);
  }
  keep(bytes);
  return lines;
}

std::vector<std::string> LineReader::finish() {
  std::vector<std::string> lines;
  add(lines, partial_);
  partial_.clear();
  return lines;
}

std::string_view LineReader::join(std::string_view piece) {
  if (partial_.empty()) return piece;
  keep(piece);
  return partial_;
}

void LineReader::keep(std::string_view piece) {
  // Two bytes beyond the limit suffice to see that a line is too long, even if one of them is a CR.
  partial_.append(piece.substr(0, limit_ + 2 - partial_.size()));
}

void LineReader::add(std::vector<std::string>& lines, std::string_view line) const {
  line = cut(line);
  if (!line.empty() && isValidUTF8(line)) lines.emplace_back(line);
}

std::string_view LineReader::cut(std::string_view line) const {
  if (line.size() <= limit_) return line;
  std::size_t length = limit_;
  const auto continuesCharacter = [&] { return (line[length] & 0xC0) == 0x80; };
  while (continuesCharacter() && length > limit_ - maxContinuationBytes) --length;
  return line.substr(0, length);
}

}  // namespace zephyl

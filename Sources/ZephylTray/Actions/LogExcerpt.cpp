#include "ZephylTray/Actions/LogExcerpt.hpp"

#include <cstddef>
#include <span>

#include "System/Data/Text.hpp"

namespace zephyl {

namespace {

constexpr std::size_t headLines = 6;
constexpr std::size_t tailLines = 12;

std::string joined(std::span<const std::string> lines) {
  std::string text;
  for (const auto& line : lines) {
    if (&line != &lines.front()) text += "\n";
    text += visible(line);
  }
  return text;
}

}  // namespace

std::string logExcerpt(const std::vector<std::string>& lines) {
  const std::span all(lines);
  if (all.empty()) return "(no output yet)";
  if (all.size() <= headLines + tailLines) return joined(all);
  return joined(all.first(headLines)) + "\n\n… TRUNCATED LINES …\n\n" + joined(all.last(tailLines));
}

}  // namespace zephyl

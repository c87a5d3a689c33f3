#include "Desktop/Terminal/Drawing/TerminalType.hpp"

#include <array>
#include <cstdint>
#include <utility>

#include <boost/archive/iterators/base64_from_binary.hpp>
#include <boost/archive/iterators/transform_width.hpp>

// Last, because their macros have common names.
// clang-format off
#include <curses.h>
#include <term.h>

#include "System/Data/Format.hpp"
// clang-format on

namespace zephyl {

namespace {

/// Removes the delays that old terminals needed.
std::string withoutPadding(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const auto begin = text.find("$<");
    const auto end = begin == std::string_view::npos ? begin : text.find('>', begin);
    if (end == std::string_view::npos) return result.append(text);
    result += text.substr(0, begin);
    text.remove_prefix(end + 1);
  }
  return result;
}

std::string capability(const char* name) {
  const char* const value = ::tigetstr(name);
  // NOLINTNEXTLINE(performance-no-int-to-ptr): the documented result for a wrong type
  if (value == nullptr || value == reinterpret_cast<const char*>(std::intptr_t{-1})) return {};
  return withoutPadding(value);
}

/// Returns a sequence with its parameters filled in.
std::string expanded(const std::string& capability, long first, long second = 0) {
  if (capability.empty()) return {};
  const char* const value = ::tparm(capability.c_str(), first, second, 0L, 0L, 0L, 0L, 0L, 0L, 0L);
  return value == nullptr ? "" : value;
}

std::string base64(std::string_view bytes) {
  using boost::archive::iterators::base64_from_binary;
  using boost::archive::iterators::transform_width;
  using Digits = base64_from_binary<transform_width<const char*, 6, 8>>;
  const char* const end = bytes.data() + bytes.size();
  std::string text(Digits(bytes.data()), Digits(end));
  text.append((3 - bytes.size() % 3) % 3, '=');
  return text;
}

constexpr std::array<std::pair<const char*, Key::Kind>, 11> keyCapabilities{
    {{"kcuu1", Key::Kind::up},
     {"kcud1", Key::Kind::down},
     {"kcub1", Key::Kind::left},
     {"kcuf1", Key::Kind::right},
     {"khome", Key::Kind::home},
     {"kend", Key::Kind::end},
     {"kpp", Key::Kind::pageUp},
     {"knp", Key::Kind::pageDown},
     {"kdch1", Key::Kind::remove},
     {"kcbt", Key::Kind::backTab},
     {"kbs", Key::Kind::backspace}}};

/// Reports of the mouse's buttons in decimal form, reports of the focus, and marks around pasted
/// text.
constexpr std::string_view extensionsOn = "\x1b[?1000h\x1b[?1004h\x1b[?1006h\x1b[?2004h";
constexpr std::string_view extensionsOff = "\x1b[?2004l\x1b[?1006l\x1b[?1004l\x1b[?1000l";

}  // namespace

Result<TerminalType> TerminalType::load(const std::string& name, bool colors) {
  if (name.empty()) return Error{"unknown terminal type: TERM is not set"};
  int found = 0;
  if (::setupterm(name.c_str(), 1, &found) != OK) {
    return Error{formatText("unknown terminal type \"{}\"", name)};
  }
  TerminalType type;
  type.read();
  if (!colors) type.colors_ = 0;
  ::del_curterm(cur_term);
  if (type.move_.empty() || type.clear_.empty()) {
    return Error{formatText("a terminal of type \"{}\" cannot show a menu", name)};
  }
  return type;
}

void TerminalType::read() {
  move_ = capability("cup");
  plain_ = capability("sgr0");
  bold_ = capability("bold");
  dim_ = capability("dim");
  reverse_ = capability("rev");
  foreground_ = capability("setaf");
  clear_ = capability("clear");
  showCursor_ = capability("cnorm");
  hideCursor_ = capability("civis");
  bell_ = capability("bel");
  enter_ = capability("smcup") + capability("smkx");
  leave_ = capability("rmkx") + capability("rmcup");
  // The entry of Linux's console has a mouse, but no alternate screen.
  isExtended_ = !capability("kmous").empty() && !capability("smcup").empty();
  colors_ = foreground_.empty() ? 0 : ::tigetnum("colors");
  for (const auto& [name, kind] : keyCapabilities) {
    if (auto sequence = capability(name); !sequence.empty()) {
      keys_.emplace_back(std::move(sequence), kind);
    }
  }
}

std::string TerminalType::moveTo(int row, int column) const {
  return expanded(move_, row, column);
}

std::string TerminalType::color(CellStyle::Color color) const {
  using Color = CellStyle::Color;
  const bool many = colors_ >= 256;
  switch (color) {
    case Color::grey:
      return colors_ >= 16 ? expanded(foreground_, 8) : dim_;
    case Color::green:
      return expanded(foreground_, 2);
    case Color::orange:
      return expanded(foreground_, many ? 208 : 3);
    case Color::red:
      return expanded(foreground_, 1);
    case Color::normal:
      break;
  }
  return {};
}

std::string TerminalType::style(const CellStyle& style) const {
  std::string bytes = plain_;
  if (style.bold) bytes += bold_;
  if (style.dim) bytes += dim_;
  if (style.reverse) bytes += reverse_;
  if (hasColors()) bytes += color(style.color);
  return bytes;
}

std::string TerminalType::enter() const {
  return isExtended_ ? enter_ + std::string(extensionsOn) : enter_;
}

std::string TerminalType::leave() const {
  return plain_ + (isExtended_ ? std::string(extensionsOff) : "") + showCursor_ + leave_;
}

std::optional<std::string> TerminalType::copy(std::string_view text) const {
  if (!isExtended_) return std::nullopt;
  return "\x1b]52;c;" + base64(text) + "\a";
}

}  // namespace zephyl

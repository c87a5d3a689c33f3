#include "Desktop/Terminal/Drawing/KeyDecoder.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <iterator>

#include "System/Data/Text.hpp"

namespace zephyl {

namespace {

constexpr char escapeByte = '\x1b';
constexpr std::string_view endOfPaste = "\x1b[201~";
/// Longer sequences are not keys.
constexpr std::size_t maxSequenceBytes = 32;
/// Pasted text beyond this size is dropped.
constexpr std::size_t maxPasteBytes = 64UL * 1024;

std::optional<Key::Kind> kindOfFinal(char final) {
  switch (final) {
    case 'A':
      return Key::Kind::up;
    case 'B':
      return Key::Kind::down;
    case 'C':
      return Key::Kind::right;
    case 'D':
      return Key::Kind::left;
    case 'H':
      return Key::Kind::home;
    case 'F':
      return Key::Kind::end;
    case 'Z':
      return Key::Kind::backTab;
    case 'M':
      return Key::Kind::enter;
    default:
      return std::nullopt;
  }
}

std::optional<Key::Kind> kindOfNumber(std::string_view parameters) {
  static constexpr std::array<std::pair<std::string_view, Key::Kind>, 7> numbers{
      {{"1", Key::Kind::home},
       {"7", Key::Kind::home},
       {"3", Key::Kind::remove},
       {"4", Key::Kind::end},
       {"8", Key::Kind::end},
       {"5", Key::Kind::pageUp},
       {"6", Key::Kind::pageDown}}};
  const auto number = parameters.substr(0, parameters.find(';'));
  for (const auto& [text, kind] : numbers) {
    if (number == text) return kind;
  }
  return std::nullopt;
}

/// Parses "<button;column;row", as the mouse reports it. Positions begin at 1.
std::optional<Key> mouseKey(std::string_view parameters, char final) {
  std::array<int, 3> values{};
  std::size_t count = 0;
  for (const auto piece : splitNonEmpty(parameters, ';')) {
    if (count == values.size()) return std::nullopt;
    std::from_chars(piece.data(), piece.data() + piece.size(), values.at(count++));
  }
  if (count != values.size() || final != 'M') return std::nullopt;
  const auto [button, column, row] = values;
  switch (button) {
    case 0:
      return Key{.kind = Key::Kind::press, .row = row - 1, .column = column - 1};
    case 64:
      return Key{.kind = Key::Kind::wheelUp, .row = row - 1, .column = column - 1};
    case 65:
      return Key{.kind = Key::Kind::wheelDown, .row = row - 1, .column = column - 1};
    default:
      return std::nullopt;
  }
}

std::optional<Key> keyOf(std::optional<Key::Kind> kind) {
  if (!kind) return std::nullopt;
  return Key{.kind = *kind};
}

/// Returns the length of the UTF-8 character that begins with this byte, or 0 if it begins none.
std::size_t characterLength(unsigned char lead) {
  if (lead < 0x80) return 1;
  if (lead < 0xC2 || lead > 0xF4) return 0;
  if (lead < 0xE0) return 2;
  return lead < 0xF0 ? 3 : 4;
}

bool continues(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

std::optional<Key> controlKey(char byte) {
  switch (byte) {
    case '\r':
    case '\n':
      return Key{.kind = Key::Kind::enter};
    case '\t':
      return Key{.kind = Key::Kind::tab};
    case '\b':
    case '\x7f':
      return Key{.kind = Key::Kind::backspace};
    case '\0':
      return std::nullopt;
    default:
      if (byte > '\x1a') return std::nullopt;
      return Key{.kind = Key::Kind::control,
                 .text = std::string(1, static_cast<char>(byte + 'a' - 1))};
  }
}

}  // namespace

std::vector<Key> KeyDecoder::decode(std::string_view bytes) {
  pending_.append(bytes);
  return decodePending(false);
}

std::vector<Key> KeyDecoder::flush() {
  return decodePending(true);
}

std::vector<Key> KeyDecoder::decodePending(bool complete) {
  std::vector<Key> keys;
  while (!pending_.empty()) {
    if (pasting_) {
      auto paste = decodePaste();
      if (!paste) break;
      keys.push_back(*std::move(paste));
      continue;
    }
    auto step = next(pending_, complete);
    if (step.bytes == 0) break;
    pending_.erase(0, step.bytes);
    if (step.key) keys.push_back(*std::move(step.key));
  }
  return keys;
}

/// Returns the pasted text, or nullopt until its end has arrived.
std::optional<Key> KeyDecoder::decodePaste() {
  const std::string_view pending = pending_;
  const auto end = pending.find(endOfPaste);
  if (end == std::string_view::npos) {
    if (pending_.size() > maxPasteBytes) {
      // Drops bytes beyond the limit, but keeps a possible beginning of the end mark.
      pending_.erase(maxPasteBytes - endOfPaste.size(), pending_.size() - maxPasteBytes);
    }
    return std::nullopt;
  }
  Key key{.kind = Key::Kind::paste, .text = pending.substr(0, end)};
  pasting_ = false;
  pending_.erase(0, end + endOfPaste.size());
  return key;
}

KeyDecoder::Step KeyDecoder::next(std::string_view bytes, bool complete) {
  for (const auto& [sequence, kind] : sequences_) {
    if (bytes.starts_with(sequence)) return {sequence.size(), Key{.kind = kind}};
  }
  const char first = bytes.front();
  if (first == escapeByte) return nextEscaped(bytes, complete);
  if (static_cast<unsigned char>(first) < 0x20 || first == '\x7f') return {1, controlKey(first)};
  return nextText(bytes, complete);
}

KeyDecoder::Step KeyDecoder::nextEscaped(std::string_view bytes, bool complete) {
  if (bytes.size() == 1) {
    return complete ? Step{1, Key{.kind = Key::Kind::escape}} : Step{};
  }
  if (bytes[1] == '[' || bytes[1] == 'O') {
    auto step = bytes[1] == '[' || bytes.size() < 3 ? nextControlSequence(bytes)
                                                    : Step{3, keyOf(kindOfFinal(bytes[2]))};
    if (step.bytes == 0 && complete) return {bytes.size(), std::nullopt};
    return step;
  }
  if (bytes[1] == escapeByte) return {1, Key{.kind = Key::Kind::escape}};
  return {2, std::nullopt};  // a key with Alt
}

KeyDecoder::Step KeyDecoder::nextControlSequence(std::string_view bytes) {
  std::size_t end = 2;
  while (end < bytes.size() && bytes[end] >= '\x20' && bytes[end] < '\x40') ++end;
  if (end > maxSequenceBytes) return {end, std::nullopt};
  if (end >= bytes.size()) return {};
  const char final = bytes[end];
  auto parameters = bytes.substr(2, end - 2);
  if (parameters.starts_with('<')) return {end + 1, mouseKey(parameters.substr(1), final)};
  if (final == 'I' && parameters.empty()) return {end + 1, Key{.kind = Key::Kind::focusIn}};
  if (final != '~') return {end + 1, keyOf(kindOfFinal(final))};
  pasting_ = parameters == "200";
  return {end + 1, keyOf(kindOfNumber(parameters))};
}

KeyDecoder::Step KeyDecoder::nextText(std::string_view bytes, bool complete) const {
  const std::size_t length = characterLength(static_cast<unsigned char>(bytes.front()));
  std::size_t present = 1;
  while (present < std::min(length, bytes.size()) && continues(bytes[present])) ++present;
  const bool mayContinue = present == bytes.size() && !complete;
  if (present < length && mayContinue) return {};
  const auto text = bytes.substr(0, present);
  if (present != length || !isValidUTF8(text) || (length > 1 && !unicode_)) {
    return {present, std::nullopt};
  }
  return {length, Key{.kind = Key::Kind::character, .text = text}};
}

}  // namespace zephyl

#include "Helpers/Updates/Program/Appcast.hpp"

#include <ctime>

#include "System/Data/Text.hpp"

#include <pugixml.hpp>

namespace zephyl {

namespace {

constexpr std::size_t maxItems = 1000;
constexpr std::size_t maxNotes = 4000;  // the number of displayed bytes of release notes

std::string_view localName(std::string_view name) {
  return name.substr(name.find(':') + 1);
}

std::string textOf(const pugi::xml_node& node) {
  std::string text;
  for (const auto& child : node.children()) {
    const bool isText = child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata;
    if (isText) text += child.value();
  }
  std::string_view whole = text;
  constexpr std::string_view blanks = " \t\r\n";
  const auto first = whole.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return std::string(whole.substr(first, whole.find_last_not_of(blanks) + 1 - first));
}

std::optional<std::int64_t> positive(std::string_view text) {
  const auto number = parseDecimal(text);
  if (!number || *number <= 0) return std::nullopt;
  return *number;
}

/// "Sat, 21 Nov 2026 10:00:00 +0000"
std::optional<std::chrono::sys_seconds> parseDate(const std::string& text) {
  std::tm parts{};
  const char* end = ::strptime(text.c_str(), "%a, %d %b %Y %H:%M:%S %z", &parts);
  if (end == nullptr || *end != '\0') return std::nullopt;
  const long offset = parts.tm_gmtoff;
  return std::chrono::sys_seconds(std::chrono::seconds(::timegm(&parts) - offset));
}

/// Cuts a text at the beginning of a character.
std::string shortened(std::string text) {
  if (text.size() <= maxNotes) return text;
  std::size_t end = maxNotes;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xc0U) == 0x80U) --end;
  text.resize(end);
  return text + "…";
}

void readEnclosure(const pugi::xml_node& node, AppcastItem& item) {
  AppcastItem::Enclosure enclosure;
  for (const auto& attribute : node.attributes()) {
    const auto name = localName(attribute.name());
    const std::string value = attribute.value();
    if (name == "url") enclosure.url = value;
    if (name == "type") enclosure.type = value;
    if (name == "length") enclosure.length = positive(value).value_or(0);
    if (name == "architecture") enclosure.architecture = value;
    if (name == "sha256") enclosure.sha256 = lowerCased(value);
    if (name == "edSignature") enclosure.signature = value;
    if (name == "version" && item.version.empty()) item.version = value;
    if (name == "shortVersionString" && item.shortVersionString.empty()) {
      item.shortVersionString = value;
    }
  }
  item.enclosures.push_back(std::move(enclosure));
}

void readElement(const pugi::xml_node& node, AppcastItem& item) {
  const auto name = localName(node.name());
  if (name == "enclosure") return readEnclosure(node, item);
  if (name == "criticalUpdate") {
    item.critical = true;
    return;
  }
  const std::string text = textOf(node);
  if (name == "version") item.version = text;
  if (name == "shortVersionString") item.shortVersionString = text;
  if (name == "minimumSystemVersion") item.minimumSystemVersion = text;
  if (name == "channel") item.channel = text;
  if (name == "description") item.description = shortened(text);
  if (name == "pubDate") item.published = parseDate(text);
  if (name == "phasedRolloutInterval") {
    if (const auto seconds = positive(text)) {
      item.phasedRolloutInterval = std::chrono::seconds(*seconds);
    }
  }
}

}  // namespace

Result<Appcast> parseAppcast(std::string_view xml) {
  pugi::xml_document document;
  const auto outcome =
      document.load_buffer(xml.data(), xml.size(), pugi::parse_default, pugi::encoding_utf8);
  if (!outcome) return Error{"The feed cannot be read: ", outcome.description(), "."};
  const auto channel = document.child("rss").child("channel");
  if (!channel) return Error{"The feed cannot be read: it is not an appcast."};
  Appcast appcast{.date = parseDate(textOf(channel.child("lastBuildDate")))};
  for (const auto& node : channel.children("item")) {
    if (appcast.items.size() == maxItems) break;
    AppcastItem& item = appcast.items.emplace_back();
    for (const auto& element : node.children()) readElement(element, item);
  }
  return appcast;
}

}  // namespace zephyl

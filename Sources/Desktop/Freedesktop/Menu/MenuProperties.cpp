#include "Desktop/Freedesktop/Menu/MenuProperties.hpp"

#include <algorithm>
#include <utility>

#include "System/Data/Text.hpp"

namespace zephyl {

namespace {

std::string_view dotCharacter(DotColor color) {
  switch (color) {
    case DotColor::green:
      return "🟢 ";
    case DotColor::orange:
      return "🟠 ";
    case DotColor::red:
      return "🔴 ";
    case DotColor::grey:
      break;
  }
  return "⚪ ";
}

/// Returns the meaning of the color, for users who cannot see it.
std::string_view stateInWords(DotColor color) {
  switch (color) {
    case DotColor::green:
      return "connected";
    case DotColor::orange:
      return "in progress";
    case DotColor::red:
      return "not working";
    case DotColor::grey:
      break;
  }
  return "off";
}

bool hasDotAsIcon(const MenuEntry& entry, DotStyle style) {
  if (!entry.dot) return false;
  return style == DotStyle::icon || (style == DotStyle::characterWhenDisabled && entry.enabled);
}

std::string label(const MenuEntry& entry, DotStyle style) {
  std::string text;
  const bool hasDotInLabel = entry.dot && !hasDotAsIcon(entry, style);
  if (hasDotInLabel && style != DotStyle::words) text = dotCharacter(*entry.dot);
  for (const char c : visible(entry.title)) {
    text += c;
    if (c == '_') text += c;  // a single underscore marks a mnemonic
  }
  if (hasDotInLabel && style == DotStyle::words && !entry.submenu.empty()) {
    text.append(" — ").append(stateInWords(*entry.dot));
  }
  return text;
}

}  // namespace

std::vector<MenuProperty> propertiesOf(const MenuEntry* entry, DotStyle style) {
  if (entry == nullptr) return {{"children-display", "submenu"}};
  if (entry->kind == MenuEntry::Kind::separator) return {{"type", "separator"}};
  std::vector<MenuProperty> properties{{"label", label(*entry, style)},
                                       {"enabled", entry->enabled}};
  if (!entry->submenu.empty()) properties.push_back({"children-display", "submenu"});
  if (!entry->shortcut.empty()) {
    properties.push_back({"shortcut", Shortcut{entry->shortcut}});
  }
  if (entry->dot) {
    if (hasDotAsIcon(*entry, style)) {
      properties.push_back({"icon-data", ImageBytes{dotImage(*entry->dot)}});
    }
    properties.push_back(
        {"accessible-desc", visible(entry->title).append(", ").append(stateInWords(*entry->dot))});
  }
  return properties;
}

std::vector<std::string_view> removedProperties(const MenuEntry& before, const MenuEntry& now,
                                                DotStyle style) {
  const auto left = propertiesOf(&now, style);
  std::vector<std::string_view> names;
  for (const auto& property : propertiesOf(&before, style)) {
    const auto has = [&](const auto& each) { return each.name == property.name; };
    if (std::none_of(left.begin(), left.end(), has)) names.push_back(property.name);
  }
  return names;
}

std::vector<MenuProperty> changedProperties(const MenuEntry& before, const MenuEntry& now,
                                            DotStyle style) {
  const auto old = propertiesOf(&before, style);
  auto properties = propertiesOf(&now, style);
  std::erase_if(properties, [&](const auto& property) {
    return std::find(old.begin(), old.end(), property) != old.end();
  });
  return properties;
}

}  // namespace zephyl

#include "ZephylTray/Commands/Client/AutostartEntry.hpp"

#include <vector>

#include "System/Data/Text.hpp"

namespace zephyl {

namespace {

constexpr std::string_view shortEntry =
    "[Desktop Entry]\nType=Application\nName=Zephyl\nExec=zephyl-tray\nIcon=com.zephyl.tray\n";

/// Returns a quoted program for the value of `Exec`: escaped once for the quotes and once for the
/// string value.
std::string inQuotes(const std::string& program) {
  std::string text = "\"";
  for (const char character : program) {
    if (character == '\\') {
      text += R"(\\\\)";
    } else if (character == '"' || character == '`' || character == '$') {
      text += std::string(R"(\\)") + character;
    } else if (character == '%') {
      text += "%%";
    } else {
      text += character;
    }
  }
  return text + "\"";
}

std::string_view keyOf(std::string_view line) {
  return trimmed(line.substr(0, line.find('=')));
}

/// Returns the arguments after the program, with the space before them.
std::string argumentsOf(std::string_view execLine) {
  const auto value = trimmed(execLine.substr(execLine.find('=') + 1));
  const auto end = value.starts_with('"') ? value.find('"', 1) + 1 : value.find(' ');
  return end < value.size() ? std::string(value.substr(end)) : "";
}

}  // namespace

std::string autostartEntry(std::string_view desktopEntry, const std::string& executable) {
  std::string text;
  bool isMainGroup = true;
  for (const auto line : splitNonEmpty(desktopEntry.empty() ? shortEntry : desktopEntry, '\n')) {
    if (line.starts_with('[')) isMainGroup = trimmed(line) == "[Desktop Entry]";
    if (!isMainGroup) break;  // actions have their own programs and are not needed here
    const auto key = keyOf(line);
    if (key == "Hidden" || key == "TryExec" || key == "DBusActivatable" || key == "Actions")
      continue;
    if (key == "Exec") {
      text += "Exec=" + inQuotes(executable) + argumentsOf(line);
    } else {
      text += line;
    }
    text += "\n";
  }
  return text;
}

bool startsProgram(std::string_view entry) {
  bool starts = false;
  for (const auto line : splitNonEmpty(entry, '\n')) {
    const auto value = lowerCased(trimmed(line.substr(line.find('=') + 1)));
    if (keyOf(line) == "Hidden" && value == "true") return false;
    starts = starts || keyOf(line) == "Exec";
  }
  return starts;
}

}  // namespace zephyl

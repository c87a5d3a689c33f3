#include "Desktop/Freedesktop/Bus/BusText.hpp"

#include <algorithm>

#include "System/Data/Text.hpp"

namespace zephyl {

namespace {

std::string replaced(std::string_view text, std::string_view ampersand, std::string_view less,
                     std::string_view greater) {
  std::string result;
  for (const char c : visibleLines(text)) {
    if (c == '&') {
      result += ampersand;
    } else if (c == '<') {
      result += less;
    } else if (c == '>') {
      result += greater;
    } else {
      result += c;
    }
  }
  return result;
}

}  // namespace

std::string escapedMarkup(std::string_view text) {
  return replaced(text, "&amp;", "&lt;", "&gt;");
}

std::string withoutMarkup(std::string_view text) {
  return replaced(text, "+", "‹", "›");
}

std::string applicationPath(std::string_view identifier) {
  auto path = "/" + std::string(identifier);
  std::replace(path.begin(), path.end(), '.', '/');
  std::replace(path.begin(), path.end(), '-', '_');
  return path;
}

std::string portalRequestPath(std::string_view uniqueName, std::string_view token) {
  std::string sender(uniqueName.substr(uniqueName.starts_with(':') ? 1 : 0));
  std::replace(sender.begin(), sender.end(), '.', '_');
  return "/org/freedesktop/portal/desktop/request/" + sender + "/" + std::string(token);
}

}  // namespace zephyl

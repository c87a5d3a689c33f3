#pragma once

#include <string>
#include <string_view>

/// Spellings that D-Bus services ask for. Pure.
namespace zephyl {

/// Text fit to be shown, lines kept: valid UTF-8, other control characters made visible.
std::string shownText(std::string_view text);
/// Shown text with `&`, `<` and `>` escaped, for where markup is understood.
std::string escapedMarkup(std::string_view text);
/// Shown text with look-alikes for `&`, `<` and `>`, for where nobody knows whether markup is
/// understood.
std::string withoutMarkup(std::string_view text);

/// Where an application with this identifier exports itself: "/com/zephyl/desktop".
std::string applicationPath(std::string_view identifier);
/// Where a portal will answer a request with this token from the connection of this unique name.
std::string portalRequestPath(std::string_view uniqueName, std::string_view token);

}  // namespace zephyl

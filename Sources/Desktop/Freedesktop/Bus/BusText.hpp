#pragma once

#include <string>
#include <string_view>

/// Spellings that D-Bus services ask for. Pure.
namespace zephyl {

/// Visible lines with `&`, `<` and `>` escaped, for where markup is understood.
std::string escapedMarkup(std::string_view text);
/// Visible lines with look-alikes for `&`, `<` and `>`, for where nobody knows whether markup is
/// understood.
std::string withoutMarkup(std::string_view text);

/// Where an application with this identifier exports itself: "/com/zephyl/desktop".
std::string applicationPath(std::string_view identifier);
/// Where a portal will answer a request with this token from the connection of this unique name.
std::string portalRequestPath(std::string_view uniqueName, std::string_view token);

}  // namespace zephyl

#pragma once

#include <string>
#include <string_view>

/// Text conversions for D-Bus services. Pure.
namespace zephyl {

/// Returns visible lines with `&`, `<` and `>` escaped, for services that interpret markup.
std::string escapedMarkup(std::string_view text);
/// Returns visible lines with look-alikes for `&`, `<` and `>`, for services that may interpret
/// markup.
std::string withoutMarkup(std::string_view text);

/// Returns the object path of an application: "/com/zephyl/desktop".
std::string applicationPath(std::string_view identifier);
/// Returns the path at which a portal answers a request with this token from this connection.
std::string portalRequestPath(std::string_view uniqueName, std::string_view token);

}  // namespace zephyl

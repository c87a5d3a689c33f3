#pragma once

#include <string>
#include <string_view>

namespace zephyl {

/// The route of a request to the control server: "POST /servers/:id/label", and the id.
struct Route {
  std::string path;  ///< the template: method and path, with ":id" for a server's id
  std::string id;    ///< the id in the request; empty if the route has none

  bool operator==(const Route&) const = default;
};

/// Returns the route of a request. Ignores repeated and trailing slashes. Decodes no percent
/// escapes. Pure.
Route route(std::string_view method, std::string_view path);

}  // namespace zephyl

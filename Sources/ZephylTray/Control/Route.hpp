#pragma once

#include <string>
#include <string_view>

namespace zephyl {

/// Where a request to the control server goes: "POST /servers/:id/label", and the id.
struct Route {
  std::string path;  ///< the template: method and path, a server's id written ":id"
  std::string id;    ///< as it stands in the request; empty for a route without

  bool operator==(const Route&) const = default;
};

/// Repeated and trailing slashes do not matter; nothing is percent-decoded. Pure.
Route route(std::string_view method, std::string_view path);

}  // namespace zephyl

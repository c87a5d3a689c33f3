#include <cstdint>
#include <cstdlib>

#include "ZephylTray/Control/Route.hpp"

/// Passes any bytes as the path of a request. Additional slashes must not change the route.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string path(reinterpret_cast<const char*>(data), size);
  const auto route = zephyl::route("GET", path);
  const bool sameWithMoreSlashes = zephyl::route("GET", "//" + path + "/") == route;
  const bool hasId = route.path.starts_with("GET /servers/:id");
  if (!sameWithMoreSlashes || hasId == route.id.empty()) std::abort();
  return 0;
}

#include "ZephylTray/Route.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "System/Text.hpp"

namespace zephyl {

Route Route::of(std::string_view method, std::string_view path) {
  auto pieces = splitNonEmpty(path, '/');
  Route route;
  if (pieces.size() >= 2 && pieces[0] == "servers") {
    route.id = pieces[1];
    pieces[1] = ":id";
  }
  route.path = fmt::format("{} /{}", method, fmt::join(pieces, "/"));
  return route;
}

}  // namespace zephyl

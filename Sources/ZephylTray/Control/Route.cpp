#include "ZephylTray/Control/Route.hpp"

#include "System/Data/Format.hpp"
#include "System/Data/Text.hpp"

namespace zephyl {

Route route(std::string_view method, std::string_view path) {
  auto pieces = splitNonEmpty(path, '/');
  Route found;
  if (pieces.size() >= 2 && pieces[0] == "servers") {
    found.id = pieces[1];
    pieces[1] = ":id";
  }
  found.path = formatText("{} /{}", method, joined(pieces, "/"));
  return found;
}

}  // namespace zephyl

#include "ZephylTray/Actions/WebAddress.hpp"

namespace zephyl {

std::string webAddress(std::string_view boundAddress, bool internalHostResolves) {
  const bool named = internalHostResolves && boundAddress.ends_with(":80");
  return std::string("http://").append(named ? internalWebHost : boundAddress);
}

}  // namespace zephyl

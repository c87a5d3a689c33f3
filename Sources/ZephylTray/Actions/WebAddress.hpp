#pragma once

#include <string>
#include <string_view>

namespace zephyl {

/// The name under which a server's web pages are reached on its own network, where it resolves.
inline constexpr std::string_view internalWebHost = "zephyl.internal";

/// Where a browser reaches a server whose tunnel is bound to `boundAddress` ("host:port"): the
/// internal name when the port is 80 and the name resolves here, else the address itself. Pure.
std::string webAddress(std::string_view boundAddress, bool internalHostResolves);

}  // namespace zephyl

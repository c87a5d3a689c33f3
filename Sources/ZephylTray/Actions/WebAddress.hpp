#pragma once

#include <string>
#include <string_view>

namespace zephyl {

/// The host name of a server's web pages on its own network, where it resolves.
inline constexpr std::string_view internalWebHost = "zephyl.internal";

/// Returns the web address of a server whose tunnel is bound to `boundAddress` ("host:port"): the
/// internal host name if the port is 80 and the name resolves here, otherwise the address itself.
/// Pure.
std::string webAddress(std::string_view boundAddress, bool internalHostResolves);

}  // namespace zephyl

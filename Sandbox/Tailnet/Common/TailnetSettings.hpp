#pragma once

#include <boost/asio/ip/tcp.hpp>

#include "Common/Endpoint.hpp"
#include "Common/Program.hpp"

/// Settings shared by the daemon and the client.
namespace zephyl::sandbox {

/// Reads an option whose value is a loopback address and a port.
inline boost::asio::ip::tcp::endpoint readEndpoint(SettingsReader& reader, const char* option) {
  const auto endpoint = parseLoopbackEndpoint(reader.text(option));
  if (endpoint) return *endpoint;
  reader.fail({"--", option, ": ", endpoint.error().message});
  return {};
}

inline bool ignoresTerm(const SettingsReader& reader) {
  return reader.text(nullptr, "ZEPHYL_SANDBOX_TAILNET_IGNORE_TERM") == "1";
}

}  // namespace zephyl::sandbox

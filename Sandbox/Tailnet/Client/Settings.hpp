#pragma once

#include <optional>
#include <string>

#include <boost/asio/ip/tcp.hpp>

#include "Common/Ending.hpp"
#include "Common/Program.hpp"

namespace zephyl::sandbox {

/// The settings of a run of the client.
struct Settings {
  /// The fingerprint of the server's tailnet, in lower case.
  std::string fingerprint;
  /// The daemon's SOCKS5 proxy.
  boost::asio::ip::tcp::endpoint socks5;
  std::string stateDirectory;
  boost::asio::ip::tcp::endpoint shim;
  boost::asio::ip::tcp::endpoint tunnel;
  boost::asio::ip::tcp::endpoint tunnelFallback;
  /// The server's web address; nullopt if it has to be discovered.
  std::optional<std::string> target;
  /// The daemon's control socket.
  std::string controlSocket;
  Misbehavior misbehavior;
};

/// The client's name, options and help.
extern const Program companionProgram;

/// Fails for an invalid value in the command line or the environment.
Result<Settings> readSettings(SettingsReader reader);

}  // namespace zephyl::sandbox

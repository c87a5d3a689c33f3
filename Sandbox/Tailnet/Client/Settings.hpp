#pragma once

#include <optional>
#include <string>

#include <boost/asio/ip/tcp.hpp>

#include "Common/Ending.hpp"
#include "Common/Program.hpp"

namespace zephyl::sandbox {

/// How this run of the companion is to behave.
struct Settings {
  /// Of the server's tailnet, in lower case.
  std::string fingerprint;
  /// The daemon's SOCKS5 proxy.
  boost::asio::ip::tcp::endpoint socks5;
  std::string stateDirectory;
  boost::asio::ip::tcp::endpoint shim;
  boost::asio::ip::tcp::endpoint tunnel;
  boost::asio::ip::tcp::endpoint tunnelFallback;
  /// The server's web address; nullopt when it is to be discovered.
  std::optional<std::string> target;
  /// The daemon's control socket.
  std::string controlSocket;
  Misbehavior misbehavior;
};

/// The companion's name, options and help.
extern const Program companionProgram;

/// An invalid value in the command line or the environment is an error.
Result<Settings> readSettings(SettingsReader reader);

}  // namespace zephyl::sandbox

#pragma once

#include <string>

#include <boost/asio/ip/tcp.hpp>

#include "Common/Ending.hpp"
#include "Common/Program.hpp"

namespace zephyl::sandbox {

/// The settings of a run of the daemon.
struct Settings {
  /// The endpoint of the SOCKS5 proxy.
  boost::asio::ip::tcp::endpoint socks5;
  std::string stateDirectory;
  std::string controlSocket;
  Misbehavior misbehavior;
};

/// The daemon's name, options and help.
extern const Program daemonProgram;

/// Fails for an invalid value in the command line or the environment.
Result<Settings> readSettings(SettingsReader reader);

}  // namespace zephyl::sandbox

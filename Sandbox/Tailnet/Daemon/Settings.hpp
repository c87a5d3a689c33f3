#pragma once

#include <string>

#include <boost/asio/ip/tcp.hpp>

#include "Common/Ending.hpp"
#include "Common/Program.hpp"

namespace zephyl::sandbox {

/// How this run of the daemon is to behave.
struct Settings {
  /// Where the SOCKS5 proxy listens.
  boost::asio::ip::tcp::endpoint socks5;
  std::string stateDirectory;
  std::string controlSocket;
  Misbehavior misbehavior;
};

/// The daemon's name, options and help.
extern const Program daemonProgram;

/// An invalid value in the command line or the environment is an error.
Result<Settings> readSettings(SettingsReader reader);

}  // namespace zephyl::sandbox

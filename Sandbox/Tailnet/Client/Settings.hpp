#pragma once

#include <optional>
#include <span>
#include <string>
#include <variant>

#include <boost/asio/ip/tcp.hpp>

#include "Common/Result.hpp"
#include "Tailnet/Common/CommandLine.hpp"
#include "Tailnet/Common/Ending.hpp"

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
  /// The server's web address; none when it is to be discovered.
  std::optional<std::string> target;
  /// The daemon's control socket.
  std::string controlSocket;
  Misbehaviour misbehaviour;
};

/// A misuse of the command line or the environment is a failure that says what is wrong.
Result<std::variant<Settings, Notice>> readSettings(std::span<const char* const> words);

}  // namespace zephyl::sandbox

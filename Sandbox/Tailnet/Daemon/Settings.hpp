#pragma once

#include <span>
#include <string>
#include <variant>

#include <boost/asio/ip/tcp.hpp>

#include "Common/Result.hpp"
#include "Tailnet/Common/CommandLine.hpp"
#include "Tailnet/Common/Ending.hpp"

namespace zephyl::sandbox {

/// How this run of the daemon is to behave.
struct Settings {
  /// Where the SOCKS5 proxy listens.
  boost::asio::ip::tcp::endpoint socks5;
  std::string stateDirectory;
  std::string controlSocket;
  Misbehaviour misbehaviour;
};

/// A misuse of the command line or the environment is a failure that says what is wrong.
Result<std::variant<Settings, Notice>> readSettings(std::span<const char* const> words);

}  // namespace zephyl::sandbox

#pragma once

#include <string>

#include <boost/asio/awaitable.hpp>

namespace zephyl::sandbox {

/// The server's web address. Its resolution is simulated: a host below ".invalid", or with
/// "unresolved" in its name, does not resolve until the file `resolve` exists in the state
/// directory. Every other host resolves.
class Target {
 public:
  Target(std::string address, std::string stateDirectory);

  [[nodiscard]] const std::string& address() const { return address_; }
  [[nodiscard]] bool isResolved() const { return resolved_; }

  /// Tries once and logs the outcome.
  void resolve();

  /// Retries every 5 s until it succeeds. Logs only the success.
  boost::asio::awaitable<void> keepResolving();

 private:
  [[nodiscard]] bool canResolve() const;

  std::string address_;
  std::string stateDirectory_;
  bool resolved_ = false;
};

}  // namespace zephyl::sandbox

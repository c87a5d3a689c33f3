#pragma once

#include <string>

#include <boost/asio/awaitable.hpp>

namespace zephyl::sandbox {

/// The server's web address, which the tailnet may or may not be able to resolve. Nothing is looked
/// up: a host below ".invalid" or with "unresolved" in it does not resolve until there is a file
/// `resolve` in the state directory; every other host does.
class Target {
 public:
  Target(std::string address, std::string stateDirectory);

  [[nodiscard]] const std::string& address() const { return address_; }
  [[nodiscard]] bool isResolved() const { return resolved_; }

  /// Tries once and logs the outcome.
  void resolve();

  /// Tries again every 5 s until it succeeds; logs nothing before.
  boost::asio::awaitable<void> keepResolving();

 private:
  [[nodiscard]] bool canResolve() const;

  std::string address_;
  std::string stateDirectory_;
  bool resolved_ = false;
};

}  // namespace zephyl::sandbox

#pragma once

#include <string>
#include <string_view>

#include <boost/asio/awaitable.hpp>

namespace zephyl::sandbox {

/// The host of a web address, in lower case; an address without scheme begins with its host.
std::string hostOf(std::string_view address);

/// The server's web address, which the tailnet may or may not be able to resolve. Nothing is looked
/// up: a host below ".invalid" or with "unresolved" in it does not resolve, until a file `resolve`
/// in the state directory says otherwise; every other host does.
class Target {
 public:
  Target(std::string address, std::string stateDirectory);

  const std::string& address() const { return address_; }
  bool isResolved() const { return resolved_; }

  /// Tries once, and logs how it went.
  void resolve();

  /// Tries again every 5 s for as long as it takes, and logs nothing but success.
  boost::asio::awaitable<void> keepResolving();

 private:
  bool canResolve() const;

  std::string address_;
  std::string stateDirectory_;
  bool resolved_ = false;
};

}  // namespace zephyl::sandbox

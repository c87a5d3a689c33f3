#pragma once

#include <string>
#include <string_view>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>

#include "Common/Result.hpp"
#include "Desktop/Command/CommandLine.hpp"
#include "Desktop/Command/WindowLink.hpp"

namespace zephyl::sandbox::desktop {

/// What a command works with: the window, and what the user wrote.
class Session {
 public:
  Session(std::string_view program, Invocation invocation, WindowLink link)
      : program_(program), invocation_(std::move(invocation)), link_(std::move(link)) {}

  std::string_view program() const { return program_; }
  const Invocation& invocation() const { return invocation_; }
  const WindowLink& link() const { return link_; }

  /// Asks the control API; an answer other than 200 is a failure with the API's own message.
  Result<boost::json::object> ask(const Request& request) const;

  /// The same, for the request that the command is about: with --json its answer is printed, and
  /// what comes back is none of the caller's business to print.
  Result<boost::json::object> askAndShow(const Request& request) const;

  Result<boost::json::array> servers() const;
  /// The id of the server that the first operand means.
  Result<std::string> server() const;

 private:
  std::string_view program_;
  Invocation invocation_;
  WindowLink link_;
};

}  // namespace zephyl::sandbox::desktop

#include "Desktop/Command/Session.hpp"

#include <utility>

#include <boost/json.hpp>
#include <fmt/format.h>

#include "Desktop/Command/Choice.hpp"
#include "Desktop/Command/Fields.hpp"

namespace zephyl::sandbox::desktop {
namespace json = boost::json;
namespace {

constexpr int okStatus = 200;

Result<json::object> interpret(const Answer& answer) {
  boost::system::error_code error;
  auto value = json::parse(answer.body, error);
  if (error || !value.is_object()) {
    return Failure{fmt::format("the tray's answer {} is no JSON object", answer.status)};
  }
  if (answer.status == okStatus) return std::move(value.get_object());
  auto message = textField(value.get_object(), "error");
  if (message.empty()) message = fmt::format("the tray answers {}", answer.status);
  return Failure{message};
}

}  // namespace

Result<json::object> Session::ask(const Request& request) const {
  const auto answer = link_.ask(request);
  if (!answer) return answer.error();
  return interpret(*answer);
}

Result<json::object> Session::askAndShow(const Request& request) const {
  const auto answer = link_.ask(request);
  if (!answer) return answer.error();
  if (invocation_.json) fmt::print("{}\n", answer->body);
  return interpret(*answer);
}

Result<json::array> Session::servers() const {
  const auto answer = ask({.method = "GET", .path = "/servers"});
  if (!answer) return answer.error();
  return listField(*answer, "servers");
}

Result<std::string> Session::server() const {
  const auto known = servers();
  if (!known) return known.error();
  return chooseServer(*known, invocation_.operands.front());
}

}  // namespace zephyl::sandbox::desktop

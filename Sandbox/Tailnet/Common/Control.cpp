#include "Tailnet/Common/Control.hpp"

#include <boost/json.hpp>

namespace zephyl::sandbox::control {
namespace json = boost::json;
namespace {

std::string errorAnswer(std::string_view message) {
  return json::serialize(json::object{{"error", message}});
}

}  // namespace

std::string answer(std::string_view request, const Status& status) {
  boost::system::error_code error;
  const auto value = json::parse(request, error);
  if (error || !value.is_object()) return errorAnswer("the request is not a JSON object");
  const auto* operation = value.get_object().if_contains("op");
  if (!operation || *operation != "status") return errorAnswer("unknown \"op\"");
  return json::serialize(json::object{{"running", status.running}, {"node", status.node}});
}

std::optional<Status> parseStatus(std::string_view line) {
  boost::system::error_code error;
  const auto value = json::parse(line, error);
  if (error || !value.is_object()) return std::nullopt;
  const auto* running = value.get_object().if_contains("running");
  const auto* node = value.get_object().if_contains("node");
  if (!running || !running->is_bool() || !node || !node->is_string()) return std::nullopt;
  return Status{.running = running->get_bool(), .node = std::string(node->get_string())};
}

}  // namespace zephyl::sandbox::control

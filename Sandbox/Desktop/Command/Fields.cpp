#include "Desktop/Command/Fields.hpp"

namespace zephyl::sandbox::desktop {
namespace json = boost::json;

std::string textField(const json::object& object, std::string_view key) {
  const auto* value = object.if_contains(key);
  return value && value->is_string() ? std::string(value->get_string()) : std::string();
}

bool flagField(const json::object& object, std::string_view key) {
  const auto* value = object.if_contains(key);
  return value && value->is_bool() && value->get_bool();
}

const json::array& listField(const json::object& object, std::string_view key) {
  static const json::array none;
  const auto* value = object.if_contains(key);
  return value && value->is_array() ? value->get_array() : none;
}

}  // namespace zephyl::sandbox::desktop

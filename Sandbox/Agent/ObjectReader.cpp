#include "Agent/ObjectReader.hpp"

#include <fmt/format.h>

namespace zephyl::sandbox {
namespace json = boost::json;

ObjectReader ObjectReader::parse(std::string_view text) {
  boost::system::error_code error;
  auto value = json::parse(text, error);
  return ObjectReader(error ? json::value() : std::move(value));
}

ObjectReader::ObjectReader(json::value value) {
  if (auto* object = value.if_object()) {
    object_ = std::move(*object);
  } else {
    reject("expected a JSON object");
  }
}

bool ObjectReader::has(std::string_view key) const {
  return find(key) != nullptr;
}

std::string ObjectReader::string(std::string_view key) {
  if (auto text = optionalString(key)) return *text;
  reject(fmt::format("expected a \"{}\" string", key));
  return {};
}

bool ObjectReader::boolean(std::string_view key) {
  const auto* value = find(key);
  if (value && value->is_bool()) return value->get_bool();
  reject(fmt::format("expected a boolean \"{}\"", key));
  return false;
}

std::int64_t ObjectReader::integer(std::string_view key) {
  const auto* value = find(key);
  if (value && value->is_int64()) return value->get_int64();
  reject(fmt::format("expected an integer \"{}\"", key));
  return 0;
}

json::array ObjectReader::array(std::string_view key) {
  if (auto list = optionalArray(key)) return *list;
  reject(fmt::format("expected a \"{}\" list", key));
  return {};
}

std::vector<std::string> ObjectReader::strings(std::string_view key) {
  if (auto list = optionalStrings(key)) return *list;
  reject(fmt::format("expected a \"{}\" list of strings", key));
  return {};
}

std::optional<std::string> ObjectReader::optionalString(std::string_view key) {
  const auto* value = findPresent(key);
  if (!value) return std::nullopt;
  if (value->is_string()) return std::string(value->get_string());
  reject(fmt::format("expected \"{}\" to be a string", key));
  return std::nullopt;
}

std::optional<double> ObjectReader::optionalNumber(std::string_view key) {
  const auto* value = findPresent(key);
  if (!value) return std::nullopt;
  boost::system::error_code error;
  const auto number = value->to_number<double>(error);
  if (!error) return number;
  reject(fmt::format("expected \"{}\" to be a number", key));
  return std::nullopt;
}

std::optional<json::array> ObjectReader::optionalArray(std::string_view key) {
  const auto* value = findPresent(key);
  if (!value) return std::nullopt;
  if (value->is_array()) return value->get_array();
  reject(fmt::format("expected \"{}\" to be a list", key));
  return std::nullopt;
}

std::optional<std::vector<std::string>> ObjectReader::optionalStrings(std::string_view key) {
  const auto list = optionalArray(key);
  if (!list) return std::nullopt;
  std::vector<std::string> texts;
  for (const auto& element : *list) {
    if (!element.is_string()) {
      reject(fmt::format("expected \"{}\" to be a list of strings", key));
      return std::nullopt;
    }
    texts.emplace_back(element.get_string());
  }
  return texts;
}

void ObjectReader::reject(std::string message) {
  if (!problem_) problem_ = badRequest(std::move(message));
}

const json::value* ObjectReader::find(std::string_view key) const {
  return object_.if_contains(key);
}

const json::value* ObjectReader::findPresent(std::string_view key) const {
  const auto* value = find(key);
  return value && !value->is_null() ? value : nullptr;
}

}  // namespace zephyl::sandbox

#pragma once

#include <string>
#include <string_view>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>

namespace zephyl::sandbox::desktop {

// The fields of a JSON object that somebody else made: what is missing or of another type is empty.

std::string textField(const boost::json::object& object, std::string_view key);
bool flagField(const boost::json::object& object, std::string_view key);
const boost::json::array& listField(const boost::json::object& object, std::string_view key);

}  // namespace zephyl::sandbox::desktop

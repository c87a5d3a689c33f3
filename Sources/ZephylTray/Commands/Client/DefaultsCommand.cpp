#include "ZephylTray/Commands/Client/DefaultsCommand.hpp"

#include "System/Data/JSON.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/UserDefaults.hpp"
#include "ZephylTray/Commands/Client/CommandClient.hpp"
#include "ZephylTray/Commands/Client/CommandTerminal.hpp"
#include "ZephylTray/Config/Config.hpp"

namespace zephyl {

namespace {

using commandTerminal::fail;
using commandTerminal::print;
using ValueType = CommandArguments::ValueType;

int notSet(const std::string& key) {
  return fail("“" + visible(key) + "” is not set.");
}

/// Returns a string unquoted, any other value as JSON.
std::string textOf(const json::Value& value) {
  return value.is_string() ? visible(std::string_view(value.get_string())) : json::compact(value);
}

int read(const CommandArguments& arguments) {
  const auto values = Config::defaults().values();
  if (!values) return fail(values.error().message);
  if (arguments.operands.size() < 2) {
    print(json::prettySorted(*values));
    return commandStatus::success;
  }
  const auto* const value = values->if_contains(arguments.operands[1]);
  if (value == nullptr) return notSet(arguments.operands[1]);
  print((arguments.json ? json::compact(*value) : textOf(*value)) + "\n");
  return commandStatus::success;
}

/// Returns the value to store in place of `stored`, which is null if absent.
Result<json::Value> valueFor(const std::string& text, const json::Value* stored,
                             std::optional<ValueType> type) {
  const auto integer = parseDecimal(text);
  if (type == ValueType::string) return json::Value(text);
  if (type == ValueType::integer && !integer)
    return Error{"“", visible(text), "” is not an integer."};
  if (type == ValueType::integer) return json::Value(*integer);
  const bool isText = stored != nullptr && stored->is_string();
  if (integer && !isText) return json::Value(*integer);
  if (stored != nullptr && stored->is_number()) {
    return Error{"The setting is an integer, and “", visible(text),
                 "” is not. Use --string to store it as a string."};
  }
  return json::Value(text);
}

int write(const CommandArguments& arguments) {
  const auto& key = arguments.operands[1];
  const auto& text = arguments.operands[2];
  if (!isValidUTF8(key) || !isValidUTF8(text)) return fail("That is not valid UTF-8.");
  const auto values = Config::defaults().values();
  if (!values) return fail(values.error().message);
  const auto value = valueFor(text, values->if_contains(key), arguments.valueType);
  if (!value) return fail(value.error().message);
  const auto saved = Config::defaults().change([&](auto& stored) { stored[key] = *value; });
  return saved ? commandStatus::success : fail(saved.error().message);
}

int remove(const std::string& key) {
  const auto values = Config::defaults().values();
  if (!values) return fail(values.error().message);
  if (!values->contains(key)) return notSet(key);
  const auto saved = Config::defaults().change([&](auto& stored) { stored.erase(key); });
  return saved ? commandStatus::success : fail(saved.error().message);
}

}  // namespace

int runDefaults(const CommandArguments& arguments) {
  const auto& operation = arguments.operands.front();
  if (operation == "read") return read(arguments);
  if (operation == "write") return write(arguments);
  return remove(arguments.operands[1]);
}

}  // namespace zephyl

#pragma once

#include <concepts>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

#include "System/Data/Result.hpp"

/// Typed JSON. A record says once which keys it has, and can then be decoded and encoded:
///
///     struct SharedRoot {
///       std::string root;
///       std::optional<std::vector<std::string>> servers;
///
///       template <typename Self, typename Fields>
///       static void describe(Self& self, Fields& fields) {
///         fields("root", self.root);
///         fields("servers", self.servers);
///       }
///     };
///
/// A field is required, unless it is a `std::optional` (absent or null holds none, and none is
/// left out on encoding) or is described by `fields.orDefault` (absent or null keeps the value
/// that it was constructed with). Unknown keys are ignored; of a repeated key the last counts.
/// An enumeration is a string; `enumNames` lists its values:
///
///     constexpr std::array<std::string_view, 2> enumNames(Phase) { return {"idle", "busy"}; }
///
/// All functions are pure; they report failure as a `Result` that names the path of the offending
/// key, such as "connections[2].state: not one of the known values".
namespace zephyl::json {

using Value = boost::json::value;
using Array = boost::json::array;
using Object = boost::json::object;

/// Deeper nesting is refused.
inline constexpr std::size_t maxDepth = 512;

/// What it allocates is overwritten when it is freed.
Result<Value> parse(std::string_view text);

/// One line without spaces.
std::string compact(const Value& value);
/// Indented by two spaces, the keys of every object sorted, with a newline at the end.
std::string prettySorted(const Value& value);

template <typename T>
concept Record = requires(T& record, int& fields) { &T::template describe<T, int>; };

template <typename T>
concept NamedEnum = std::is_enum_v<T> && requires(T value) { enumNames(value); };

/// Fills one value from JSON. Holds the reason and the path of a failure.
class Decoder {
 public:
  template <typename T>
  bool decode(const Value& from, T& into);

  [[nodiscard]] Error error() const;

 private:
  /// Hands the fields of an object to a record's `describe`.
  class Fields;

  bool decodeString(const Value& from, std::string& into);
  bool decodeBoolean(const Value& from, bool& into);
  bool decodeInteger(const Value& from, std::int64_t& into);
  bool decodeNumber(const Value& from, double& into);
  template <typename T>
  bool decodeEnum(const Value& from, T& into);
  template <typename T>
  bool decodeOptional(const Value& from, std::optional<T>& into);
  template <typename T>
  bool decodeList(const Value& from, std::vector<T>& into);
  template <typename T>
  bool decodeMap(const Value& from, std::map<std::string, T>& into);
  template <typename T>
  bool decodeRecord(const Value& from, T& into);

  bool fail(std::string_view reason);
  /// Adds the key or index that the failed value stood under; false, for the caller to return.
  bool under(std::string_view key);
  bool under(std::size_t index);

  std::string reason_;
  std::string path_;
};

class Decoder::Fields {
 public:
  Fields(Decoder& decoder, const Object& object) : decoder_(decoder), object_(object) {}

  template <typename T>
  void operator()(std::string_view key, T& into) {
    take(key, into, [&] { return decoder_.fail("missing"); });
  }
  template <typename T>
  void operator()(std::string_view key, std::optional<T>& into) {
    orDefault(key, into);
  }
  template <typename T>
  void orDefault(std::string_view key, T& into) {
    const Value* value = object_.if_contains(key);
    if (value != nullptr && !value->is_null()) (*this).take(key, into, [] { return true; });
  }

  [[nodiscard]] bool succeeded() const { return succeeded_; }

 private:
  template <typename T, typename Absent>
  void take(std::string_view key, T& into, Absent absent) {
    if (!succeeded_) return;
    const Value* value = object_.if_contains(key);
    if (value != nullptr ? decoder_.decode(*value, into) : absent()) return;
    succeeded_ = decoder_.under(key);
  }

  Decoder& decoder_;
  const Object& object_;
  bool succeeded_ = true;
};

template <typename T>
struct IsOptional : std::false_type {};
template <typename T>
struct IsOptional<std::optional<T>> : std::true_type {};
template <typename T>
struct IsList : std::false_type {};
template <typename T>
struct IsList<std::vector<T>> : std::true_type {};
template <typename T>
struct IsMap : std::false_type {};
template <typename T>
struct IsMap<std::map<std::string, T>> : std::true_type {};

template <typename T>
bool Decoder::decode(const Value& from, T& into) {
  if constexpr (std::same_as<T, std::string>) {
    return decodeString(from, into);
  } else if constexpr (std::same_as<T, bool>) {
    return decodeBoolean(from, into);
  } else if constexpr (std::same_as<T, std::int64_t>) {
    return decodeInteger(from, into);
  } else if constexpr (std::same_as<T, double>) {
    return decodeNumber(from, into);
  } else if constexpr (NamedEnum<T>) {
    return decodeEnum(from, into);
  } else if constexpr (IsOptional<T>::value) {
    return decodeOptional(from, into);
  } else if constexpr (IsList<T>::value) {
    return decodeList(from, into);
  } else if constexpr (IsMap<T>::value) {
    return decodeMap(from, into);
  } else {
    static_assert(Record<T>, "a type that JSON knows, or a record with describe()");
    return decodeRecord(from, into);
  }
}

template <typename T>
bool Decoder::decodeEnum(const Value& from, T& into) {
  std::string name;
  if (!decodeString(from, name)) return false;
  const auto names = enumNames(T{});
  for (std::size_t index = 0; index < names.size(); ++index) {
    if (names[index] == name) {
      into = static_cast<T>(index);
      return true;
    }
  }
  return fail("not one of the known values");
}

template <typename T>
bool Decoder::decodeOptional(const Value& from, std::optional<T>& into) {
  into.reset();
  return from.is_null() || decode(from, into.emplace());
}

template <typename T>
bool Decoder::decodeList(const Value& from, std::vector<T>& into) {
  const Array* array = from.if_array();
  if (array == nullptr) return fail("not a list");
  into.clear();
  into.reserve(array->size());
  for (const Value& element : *array) {
    if (!decode(element, into.emplace_back())) return under(into.size() - 1);
  }
  return true;
}

template <typename T>
bool Decoder::decodeMap(const Value& from, std::map<std::string, T>& into) {
  const Object* object = from.if_object();
  if (object == nullptr) return fail("not an object");
  into.clear();
  for (const auto& [key, value] : *object) {
    if (!decode(value, into[std::string(key)])) return under(key);
  }
  return true;
}

template <typename T>
bool Decoder::decodeRecord(const Value& from, T& into) {
  const Object* object = from.if_object();
  if (object == nullptr) return fail("not an object");
  Fields fields(*this, *object);
  T::describe(into, fields);
  return fields.succeeded();
}

/// Puts the fields of a record into an object.
class Encoder {
 public:
  template <typename T>
  static Value encode(const T& from);

  template <typename T>
  void operator()(std::string_view key, const T& from) {
    object_.emplace(key, encode(from));
  }
  template <typename T>
  void operator()(std::string_view key, const std::optional<T>& from) {
    if (from) object_.emplace(key, encode(*from));
  }
  template <typename T>
  void orDefault(std::string_view key, const T& from) {
    (*this)(key, from);
  }

 private:
  Object object_;
};

template <typename T>
Value Encoder::encode(const T& from) {
  if constexpr (NamedEnum<T>) {
    return Value(enumNames(from)[static_cast<std::size_t>(from)]);
  } else if constexpr (IsOptional<T>::value) {
    return from ? encode(*from) : Value(nullptr);
  } else if constexpr (IsList<T>::value) {
    Array array;
    array.reserve(from.size());
    for (const auto& element : from) array.push_back(encode(element));
    return array;
  } else if constexpr (IsMap<T>::value) {
    Object object;
    for (const auto& [key, value] : from) object.emplace(key, encode(value));
    return object;
  } else if constexpr (Record<T>) {
    Encoder fields;
    T::describe(from, fields);
    return std::move(fields.object_);
  } else {
    return Value(from);
  }
}

template <typename T>
Result<T> decode(const Value& from) {
  T value{};
  Decoder decoder;
  if (!decoder.decode(from, value)) return decoder.error();
  return value;
}

template <typename T>
Result<T> decodeText(std::string_view text) {
  const Result<Value> value = parse(text);
  if (!value) return value.error();
  return decode<T>(*value);
}

template <typename T>
Value encode(const T& from) {
  return Encoder::encode(from);
}

}  // namespace zephyl::json

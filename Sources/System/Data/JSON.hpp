#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include <boost/describe/class.hpp>
#include <boost/describe/enum.hpp>
#include <boost/describe/enum_to_string.hpp>
#include <boost/describe/enumerators.hpp>
#include <boost/describe/members.hpp>
#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/value.hpp>
#include <boost/mp11/algorithm.hpp>

#include "System/Data/Result.hpp"
#include "System/Data/Secret.hpp"

/// Typed JSON. A structure that is described with Boost.Describe can be decoded and encoded. Its
/// members are the fields, in this order, and the members' names are the keys:
///
///     struct SharedRoot {
///       std::string root;
///       std::optional<std::vector<std::string>> servers;
///     };
///     BOOST_DESCRIBE_STRUCT(SharedRoot, (), (root, servers))
///
/// A field is required unless it is a `std::optional`. An absent or null optional field becomes
/// nullopt, and nullopt is omitted on encoding. A field that `fieldsWithDefault` names keeps its
/// initial value if it is absent or null:
///
///     constexpr auto fieldsWithDefault(const Activity*) { return std::tuple(&Activity::grants); }
///
/// Unknown keys are ignored. If a key is repeated, its last value counts. An enumeration that is
/// described with BOOST_DESCRIBE_ENUM is encoded as a string, the name of the enumerator.
///
/// A `std::variant` is encoded as a message: an object in which exactly one of the keys that
/// `messageNames` lists is present, one for each alternative. An alternative without fields is
/// written as `true`, and one with a single field called `value` as the value of that field.
///
///     using Order = std::variant<Ping, Close>;
///     constexpr std::array<std::string_view, 2> messageNames(const Order*) {
///       return {"ping", "close"};
///     }
///
/// All functions are pure. Errors name the path of the offending key, such as
/// "connections[2].state: not one of the known values".
namespace zephyl::json {

using Value = boost::json::value;
using Array = boost::json::array;
using Object = boost::json::object;

/// `parse` refuses deeper nesting.
inline constexpr std::size_t maxDepth = 512;

/// Parses a JSON text. All memory that the parser and the value allocate is overwritten before it
/// is freed.
Result<Value> parse(std::string_view text);

/// Returns the value on one line without spaces.
std::string compact(const Value& value);
/// Returns the value indented by two spaces, with the keys of every object sorted and a newline at
/// the end.
std::string prettySorted(const Value& value);

/// A described structure.
template <typename T>
concept Record = boost::describe::has_describe_members<T>::value && std::is_class_v<T>;

template <typename T>
concept NamedEnum = boost::describe::has_describe_enumerators<T>::value && std::is_enum_v<T>;

template <typename T>
concept Integer = std::integral<T> && !std::same_as<T, bool>;

template <Record T>
using MembersOf = boost::describe::describe_members<T, boost::describe::mod_public>;

/// A structure without fields, written as `true`.
template <typename T>
concept Signal = Record<T> && boost::mp11::mp_empty<MembersOf<T>>::value;

template <Record T>
constexpr bool holdsOneValue() {
  if constexpr (boost::mp11::mp_size<MembersOf<T>>::value == 1) {
    return std::string_view(boost::mp11::mp_front<MembersOf<T>>::name) == "value";
  }
  return false;
}
/// A structure that is written as its only field.
template <typename T>
concept Wrapper = Record<T> && holdsOneValue<T>();

template <typename Left, typename Right>
constexpr bool isSameMember(Left left, Right right) {
  if constexpr (std::same_as<Left, Right>) return left == right;
  return false;
}

/// Returns whether a member, given by its descriptor, keeps its default if it is absent.
template <Record T, typename Member>
constexpr bool keepsDefault() {
  constexpr const T* record = nullptr;
  if constexpr (requires { fieldsWithDefault(record); }) {
    return std::apply(
        [](auto... members) { return (isSameMember(members, Member::pointer) || ...); },
        fieldsWithDefault(record));
  }
  return false;
}

/// Decodes one value. Holds the reason and the path of a failure.
class Decoder {
 public:
  template <typename T>
  bool decode(const Value& from, T& into);

  [[nodiscard]] Error error() const;

 private:
  bool decodeString(const Value& from, std::string& into);
  bool decodeString(const Value& from, SecretString& into);
  bool decodeBoolean(const Value& from, bool& into);
  bool decodeInteger(const Value& from, std::int64_t& into);
  bool decodeNumber(const Value& from, double& into);
  template <Integer T>
  bool decodeInteger(const Value& from, T& into);
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
  template <bool mayBeAbsent, typename T>
  bool decodeField(const Object& from, std::string_view key, T& into);
  template <typename T>
  bool decodeMessage(const Value& from, T& into);
  bool decodeSignal(const Value& from);

  /// Returns the index of the only key that is present. Returns nullopt after a call of `fail`.
  std::optional<std::size_t> onlyKey(const Value& from, std::span<const std::string_view> keys);

  bool fail(std::string_view reason);
  /// Prepends the key or index of the failed value to the path. Always returns false, so that a
  /// caller can return the result.
  bool under(std::string_view key);
  bool under(std::size_t index);

  std::string reason_;
  std::string path_;
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
struct IsMessage : std::false_type {};
template <typename... Alternatives>
struct IsMessage<std::variant<Alternatives...>> : std::true_type {};

template <typename T>
bool Decoder::decode(const Value& from, T& into) {
  if constexpr (std::same_as<T, std::string> || std::same_as<T, SecretString>) {
    return decodeString(from, into);
  } else if constexpr (std::same_as<T, bool>) {
    return decodeBoolean(from, into);
  } else if constexpr (Integer<T>) {
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
  } else if constexpr (IsMessage<T>::value) {
    return decodeMessage(from, into);
  } else if constexpr (Signal<T>) {
    return decodeSignal(from);
  } else if constexpr (Wrapper<T>) {
    return decode(from, into.value);
  } else {
    static_assert(Record<T>, "requires a type that JSON has, or one described by Boost.Describe");
    return decodeRecord(from, into);
  }
}

template <Integer T>
bool Decoder::decodeInteger(const Value& from, T& into) {
  std::int64_t integer = 0;
  if (!decodeInteger(from, integer)) return false;
  if (!std::in_range<T>(integer)) return fail("out of range");
  into = static_cast<T>(integer);
  return true;
}

template <typename T>
bool Decoder::decodeEnum(const Value& from, T& into) {
  std::string name;
  if (!decodeString(from, name)) return false;
  bool found = false;
  boost::mp11::mp_for_each<boost::describe::describe_enumerators<T>>([&](auto enumerator) {
    if (name != enumerator.name) return;
    into = enumerator.value;
    found = true;
  });
  return found || fail("not one of the known values");
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
  bool succeeded = true;
  boost::mp11::mp_for_each<MembersOf<T>>([&](auto member) {
    constexpr bool mayBeAbsent = keepsDefault<T, decltype(member)>();
    succeeded = succeeded && decodeField<mayBeAbsent>(*object, member.name, into.*member.pointer);
  });
  return succeeded;
}

template <bool mayBeAbsent, typename T>
bool Decoder::decodeField(const Object& from, std::string_view key, T& into) {
  const Value* value = from.if_contains(key);
  if constexpr (mayBeAbsent || IsOptional<T>::value) {
    if (value == nullptr || value->is_null()) return true;
  }
  const bool decoded = value == nullptr ? fail("missing") : decode(*value, into);
  return decoded || under(key);
}

template <typename T>
bool Decoder::decodeMessage(const Value& from, T& into) {
  constexpr auto names = messageNames(static_cast<const T*>(nullptr));
  static_assert(names.size() == std::variant_size_v<T>, "requires a name for each alternative");
  const auto place = onlyKey(from, names);
  if (!place) return false;
  bool decoded = false;
  boost::mp11::mp_for_each<boost::mp11::mp_iota_c<names.size()>>([&](auto index) {
    if (index == *place) decoded = decode(from.at(names[index]), into.template emplace<index>());
  });
  return decoded || under(names[*place]);
}

template <typename T>
Value encode(const T& from);

template <typename T>
void encodeField(std::string_view key, const T& from, Object& into) {
  if constexpr (IsOptional<T>::value) {
    if (from) into.emplace(key, encode(*from));
  } else {
    into.emplace(key, encode(from));
  }
}

template <typename T>
Value encodeRecord(const T& from) {
  Object object;
  boost::mp11::mp_for_each<MembersOf<T>>(
      [&](auto member) { encodeField(member.name, from.*member.pointer, object); });
  return object;
}

template <typename T>
Value encodeMessage(const T& from) {
  constexpr auto names = messageNames(static_cast<const T*>(nullptr));
  static_assert(names.size() == std::variant_size_v<T>, "requires a name for each alternative");
  Object object;
  std::visit([&](const auto& each) { encodeField(names[from.index()], each, object); }, from);
  return object;
}

template <typename T>
Value encode(const T& from) {
  if constexpr (std::same_as<T, SecretString>) {
    return Value(std::string_view(from));
  } else if constexpr (NamedEnum<T>) {
    return Value(boost::describe::enum_to_string(from, ""));
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
  } else if constexpr (IsMessage<T>::value) {
    return encodeMessage(from);
  } else if constexpr (Signal<T>) {
    return Value(true);
  } else if constexpr (Wrapper<T>) {
    return encode(from.value);
  } else if constexpr (Record<T>) {
    return encodeRecord(from);
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

}  // namespace zephyl::json

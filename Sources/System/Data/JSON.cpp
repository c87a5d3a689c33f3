#include "System/Data/JSON.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <new>

#include <boost/json/memory_resource.hpp>
#include <boost/json/parser.hpp>
#include <boost/json/serialize.hpp>

namespace zephyl::json {

namespace {

constexpr std::size_t parserBufferBytes = 4096;

/// A memory resource that overwrites freed memory, because the parsed text may contain a secret.
class WipingMemory final : public boost::json::memory_resource {
  void* do_allocate(std::size_t size, std::size_t) override {  // NOLINT(*-naming)
    return ::operator new(size);
  }
  void do_deallocate(void* memory, std::size_t size, std::size_t) override {  // NOLINT(*-naming)
    wipe(std::span(static_cast<char*>(memory), size));
    ::operator delete(memory);
  }
  bool do_is_equal(const memory_resource& other) const noexcept override {  // NOLINT(*-naming)
    return this == &other;
  }
};

/// Returns a static resource, because values may outlive the parser and be freed at exit.
boost::json::storage_ptr wipingMemory() {
  static WipingMemory memory;
  return &memory;
}

void writePretty(const Value& value, std::size_t indent, std::string& out);

void startLine(std::size_t indent, std::string& out) {
  out.append("\n").append(indent, ' ');
}

void writePrettyObject(const Object& object, std::size_t indent, std::string& out) {
  std::vector<const Object::value_type*> members;
  members.reserve(object.size());
  for (const auto& member : object) members.push_back(&member);
  std::ranges::sort(members, {}, [](const auto* member) { return member->key(); });

  char separator = '{';
  for (const auto* member : members) {
    out += separator;
    startLine(indent + 2, out);
    out += boost::json::serialize(member->key());
    out += ": ";
    writePretty(member->value(), indent + 2, out);
    separator = ',';
  }
  startLine(indent, out);
  out += '}';
}

void writePrettyArray(const Array& array, std::size_t indent, std::string& out) {
  char separator = '[';
  for (const Value& element : array) {
    out += separator;
    startLine(indent + 2, out);
    writePretty(element, indent + 2, out);
    separator = ',';
  }
  startLine(indent, out);
  out += ']';
}

void writePretty(const Value& value, std::size_t indent, std::string& out) {
  if (const Object* object = value.if_object(); object != nullptr && !object->empty()) {
    writePrettyObject(*object, indent, out);
  } else if (const Array* array = value.if_array(); array != nullptr && !array->empty()) {
    writePrettyArray(*array, indent, out);
  } else {
    out += boost::json::serialize(value);
  }
}

}  // namespace

Result<Value> parse(std::string_view text) {
  boost::json::parse_options options;
  options.max_depth = maxDepth;
  std::array<unsigned char, parserBufferBytes> buffer;
  boost::system::error_code code;
  const auto parsed = [&]() -> Result<Value> {
    boost::json::parser parser(wipingMemory(), options, buffer.data(), buffer.size());
    parser.reset(wipingMemory());
    parser.write(text, code);
    if (code) return Error{"not valid JSON: ", code.message()};
    return parser.release();
  };
  Result<Value> value = parsed();
  wipe(std::span(reinterpret_cast<char*>(buffer.data()), buffer.size()));
  return value;
}

std::string compact(const Value& value) {
  return boost::json::serialize(value);
}

std::string prettySorted(const Value& value) {
  std::string out;
  writePretty(value, 0, out);
  out += '\n';
  return out;
}

bool Decoder::decodeString(const Value& from, std::string& into) {
  const auto* string = from.if_string();
  if (string == nullptr) return fail("not a string");
  into.assign(string->data(), string->size());
  return true;
}

bool Decoder::decodeString(const Value& from, SecretString& into) {
  const auto* string = from.if_string();
  if (string == nullptr) return fail("not a string");
  into = std::string_view(string->data(), string->size());
  return true;
}

bool Decoder::decodeBoolean(const Value& from, bool& into) {
  const bool* boolean = from.if_bool();
  if (boolean == nullptr) return fail("neither true nor false");
  into = *boolean;
  return true;
}

bool Decoder::decodeInteger(const Value& from, std::int64_t& into) {
  if (const auto* integer = from.if_int64()) {
    into = *integer;
    return true;
  }
  // 9000.0 and 9e3 are integers too. Beyond 2^63 a double would not fit.
  const double* number = from.if_double();
  if (number == nullptr || *number != std::trunc(*number) || std::abs(*number) >= 0x1p63) {
    return fail("not an integer of 64 bits");
  }
  into = static_cast<std::int64_t>(*number);
  return true;
}

bool Decoder::decodeNumber(const Value& from, double& into) {
  if (!from.is_number()) return fail("not a number");
  into = from.to_number<double>();
  return true;
}

bool Decoder::decodeSignal(const Value& from) {
  const bool* boolean = from.if_bool();
  return (boolean != nullptr && *boolean) || fail("not true");
}

std::optional<std::size_t> Decoder::onlyKey(const Value& from,
                                            std::span<const std::string_view> keys) {
  const Object* object = from.if_object();
  std::optional<std::size_t> found;
  for (std::size_t place = 0; object != nullptr && place < keys.size(); ++place) {
    const Value* value = object->if_contains(keys[place]);
    if (value == nullptr || value->is_null()) continue;
    if (found) {
      fail("more than one message");
      return std::nullopt;
    }
    found = place;
  }
  if (!found) fail(object == nullptr ? "not an object" : "not one of the known messages");
  return found;
}

Error Decoder::error() const {
  return {path_, path_.empty() ? "" : ": ", reason_};
}

bool Decoder::fail(std::string_view reason) {
  reason_ = reason;
  path_.clear();
  return false;
}

bool Decoder::under(std::string_view key) {
  const bool leaf = path_.empty() || path_.front() == '[';
  path_ = std::string(key) + (leaf ? "" : ".") + path_;
  return false;
}

bool Decoder::under(std::size_t index) {
  const bool leaf = path_.empty() || path_.front() == '[';
  path_ = "[" + std::to_string(index) + "]" + (leaf ? "" : ".") + path_;
  return false;
}

}  // namespace zephyl::json

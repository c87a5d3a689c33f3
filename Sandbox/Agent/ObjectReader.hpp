#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <boost/json.hpp>

#include "Agent/Outcome.hpp"

namespace zephyl::sandbox {

/// Reads the members of one JSON object that came from outside and keeps the first thing that is
/// wrong with it, so that a caller reads all it needs and then asks once. What is wrong reads as
/// empty. For the optional members null counts as missing.
class ObjectReader {
 public:
  static ObjectReader parse(std::string_view text);
  explicit ObjectReader(boost::json::value value);

  /// Present, whatever its type; null counts.
  bool has(std::string_view key) const;

  std::string string(std::string_view key);
  bool boolean(std::string_view key);
  std::int64_t integer(std::string_view key);
  boost::json::array array(std::string_view key);
  std::vector<std::string> strings(std::string_view key);

  std::optional<std::string> optionalString(std::string_view key);
  std::optional<double> optionalNumber(std::string_view key);
  std::optional<boost::json::array> optionalArray(std::string_view key);
  std::optional<std::vector<std::string>> optionalStrings(std::string_view key);

  /// Notes a problem that the caller found; the first one stays.
  void reject(std::string message);

  const std::optional<Rejection>& problem() const { return problem_; }

 private:
  const boost::json::value* find(std::string_view key) const;
  const boost::json::value* findPresent(std::string_view key) const;

  boost::json::object object_;
  std::optional<Rejection> problem_;
};

}  // namespace zephyl::sandbox

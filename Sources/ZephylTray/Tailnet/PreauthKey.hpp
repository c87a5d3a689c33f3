#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "System/Data/Secret.hpp"

namespace zephyl {

/// The pre-authorization key of a tailnet, from its receipt until a client has joined with it. Keys
/// are numbered in the order of their receipt, from 1, so that the success of a client with an
/// earlier key does not clear a newer one. A value without synchronization.
class PreauthKey {
 public:
  /// Stores a key in place of the previous one.
  void store(SecretString key);
  /// Overwrites and removes the key, unless a key other than the one with this number is stored.
  void clear(std::uint64_t number);

  /// Returns the stored key, or nullopt.
  [[nodiscard]] const std::optional<SecretString>& stored() const { return key_; }
  /// Returns the number of the newest key, 0 before the first one.
  [[nodiscard]] std::uint64_t number() const { return number_; }

  /// Returns the line with each occurrence of the stored key replaced, also those without the
  /// prefix that keys have in common. Very short keys are not replaced.
  [[nodiscard]] std::string redacted(const std::string& line) const;

 private:
  std::optional<SecretString> key_;
  std::uint64_t number_ = 0;
};

}  // namespace zephyl

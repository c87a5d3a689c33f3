#pragma once

#include <string>
#include <string_view>

namespace zephyl::sandbox {

/// The one-time key of ZEPHYL_PREAUTH_KEY. Taking it removes it from the environment of this
/// process, where anyone who may look at the process could read it; forgetting it overwrites the
/// only copy. It cannot be copied or printed, only be asked about.
class PreauthKey {
 public:
  static PreauthKey takeFromEnvironment() { return {}; }
  ~PreauthKey() { forget(); }
  PreauthKey(const PreauthKey&) = delete;
  PreauthKey& operator=(const PreauthKey&) = delete;

  bool isGiven() const { return !text_.empty(); }
  bool contains(std::string_view part) const { return text_.find(part) != std::string::npos; }

  void forget();

 private:
  PreauthKey();

  std::string text_;
};

}  // namespace zephyl::sandbox

#pragma once

#include <string>
#include <string_view>

#include "Common/StateFile.hpp"

namespace zephyl::sandbox {

/// The one-time key from ZEPHYL_PREAUTH_KEY. Reading it removes it from the environment of this
/// process, which other programs could read. `forget` overwrites the only copy. It cannot be copied
/// or printed.
class PreauthKey {
 public:
  PreauthKey();
  ~PreauthKey() { forget(); }
  PreauthKey(const PreauthKey&) = delete;
  PreauthKey& operator=(const PreauthKey&) = delete;

  [[nodiscard]] bool isGiven() const { return !text_.empty(); }
  [[nodiscard]] bool contains(std::string_view part) const {
    return text_.find(part) != std::string::npos;
  }

  void forget();

 private:
  std::string text_;
};

/// Enrols with the key, unless the file contains an enrolment in the same tailnet. The file
/// contains the fingerprint, but no part of the key. The error is the reason, as a coordination
/// server would give it.
Result<void> enrol(const StateFile& file, const std::string& fingerprint, const PreauthKey& key);

}  // namespace zephyl::sandbox

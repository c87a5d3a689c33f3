#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Desktop/Terminal/Drawing/Key.hpp"

namespace zephyl {

/// Decodes the bytes from a terminal into keys. A key may arrive in pieces. A sequence that begins
/// with Escape is distinguished from the Escape key by the bytes that follow at once, so the owner
/// must call `flush` if bytes are pending after a moment. Pure.
class KeyDecoder {
 public:
  using Sequences = std::vector<std::pair<std::string, Key::Kind>>;

  /// `sequences` are the terminal's own sequences, in addition to the common ones. Without
  /// `unicode`, non-ASCII characters are dropped.
  KeyDecoder(Sequences sequences, bool unicode)
      : sequences_(std::move(sequences)), unicode_(unicode) {}

  std::vector<Key> decode(std::string_view bytes);
  [[nodiscard]] bool isWaiting() const { return !pending_.empty() && !pasting_; }
  /// Decodes the pending bytes without waiting for more.
  std::vector<Key> flush();

 private:
  /// The key at the beginning of the pending bytes. 0 bytes: more are needed.
  struct Step {
    std::size_t bytes = 0;
    std::optional<Key> key;
  };

  std::vector<Key> decodePending(bool complete);
  [[nodiscard]] Step next(std::string_view bytes, bool complete);
  [[nodiscard]] Step nextEscaped(std::string_view bytes, bool complete);
  [[nodiscard]] Step nextControlSequence(std::string_view bytes);
  [[nodiscard]] Step nextText(std::string_view bytes, bool complete) const;
  [[nodiscard]] std::optional<Key> decodePaste();

  const Sequences sequences_;
  const bool unicode_;
  bool pasting_ = false;
  SecretString pending_;
};

}  // namespace zephyl

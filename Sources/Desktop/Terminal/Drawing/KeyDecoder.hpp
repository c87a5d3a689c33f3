#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Desktop/Terminal/Drawing/Key.hpp"

namespace zephyl {

/// Turns the bytes that a terminal sends into keys. A key may arrive in pieces; one that begins
/// with Escape is distinguished from the Escape key by the bytes that follow at once, so the owner
/// calls `flush` when something waits and a moment has passed. Pure.
class KeyDecoder {
 public:
  using Sequences = std::vector<std::pair<std::string, Key::Kind>>;

  /// `sequences` are the terminal's own, on top of those that nearly all have in common. Without
  /// `unicode` what is no ASCII is dropped.
  KeyDecoder(Sequences sequences, bool unicode)
      : sequences_(std::move(sequences)), unicode_(unicode) {}

  std::vector<Key> decode(std::string_view bytes);
  [[nodiscard]] bool isWaiting() const { return !pending_.empty() && !pasting_; }
  /// Nothing more follows what has arrived.
  std::vector<Key> flush();

 private:
  /// What the pending bytes begin with. No bytes: more are needed to say.
  struct Step {
    std::size_t bytes = 0;
    std::optional<Key> key;
  };

  std::vector<Key> take(bool complete);
  [[nodiscard]] Step next(std::string_view bytes, bool complete);
  [[nodiscard]] Step nextEscaped(std::string_view bytes, bool complete);
  [[nodiscard]] Step nextControlSequence(std::string_view bytes);
  [[nodiscard]] Step nextText(std::string_view bytes, bool complete) const;
  [[nodiscard]] std::optional<Key> takePaste();

  const Sequences sequences_;
  const bool unicode_;
  bool pasting_ = false;
  SecretString pending_;
};

}  // namespace zephyl

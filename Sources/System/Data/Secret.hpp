#pragma once

#include <concepts>
#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// Texts that must not stay in memory after use: keys, tokens and what a user types.
///
/// Promised: memory that a `SecretString` has occupied is overwritten before it is reused, also
/// when the string grows, shrinks, is moved or is assigned to. So are the registers that copied it
/// last. Copies are made only where the code makes one explicitly.
///
/// Not promised: anything about copies elsewhere. These include other types (a `std::string` made
/// of the secret, a `json::Value` that is encoded), the registers and stack of a thread that is
/// interrupted while it handles the text, the pipe or terminal that carried it, the kernel, and the
/// environment of a child that received it. No memory is locked, so it may be written to swap. Core
/// dumps are off (see CoreDumps.hpp).
namespace zephyl {

/// Overwrites memory and the registers that copied it last. The compiler does not remove the calls.
void wipe(std::span<char> secret);
/// Overwrites and empties a text that cannot be a `SecretString`.
void wipe(std::string& secret);

/// An allocator that overwrites the memory it frees.
template <typename T>
class WipingAllocator {
 public:
  using value_type = T;

  WipingAllocator() = default;
  template <typename U>
  WipingAllocator(const WipingAllocator<U>&) noexcept {}  // NOLINT(*-explicit-*): as allocators do

  T* allocate(std::size_t count) { return std::allocator<T>().allocate(count); }
  void deallocate(T* memory, std::size_t count) noexcept {
    wipe(std::span(reinterpret_cast<char*>(memory), count * sizeof(T)));
    std::allocator<T>().deallocate(memory, count);
  }
  bool operator==(const WipingAllocator&) const = default;
};

/// A text that overwrites itself, see above. Converts to `std::string_view`. A `std::string` must
/// be made explicitly and is not overwritten.
class SecretString {
 public:
  SecretString() = default;
  template <std::convertible_to<std::string_view> Text>
    requires(!std::same_as<Text, SecretString>)
  SecretString(const Text& text) {  // NOLINT(*-explicit-*): a text may become a secret anywhere
    append(text);
  }

  operator std::string_view() const {  // NOLINT(*-explicit-*)
    return {bytes_.data(), bytes_.size()};
  }
  [[nodiscard]] bool empty() const { return bytes_.empty(); }
  [[nodiscard]] std::size_t size() const { return bytes_.size(); }
  [[nodiscard]] char* data() { return bytes_.data(); }
  [[nodiscard]] const char* data() const { return bytes_.data(); }
  [[nodiscard]] char operator[](std::size_t place) const { return bytes_[place]; }

  void reserve(std::size_t size) { bytes_.reserve(size); }
  SecretString& append(std::string_view text) {
    insert(size(), text);
    return *this;
  }
  /// `text` must not be part of this string.
  void insert(std::size_t place, std::string_view text);
  /// Removes `count` bytes, beginning at `place`.
  void erase(std::size_t place, std::size_t count);
  void clear() { erase(0, size()); }

  template <std::convertible_to<std::string_view> Text>
  friend bool operator==(const SecretString& left, const Text& right) {
    return std::string_view(left) == std::string_view(right);
  }

 private:
  std::vector<char, WipingAllocator<char>> bytes_;
};

/// Returns whether both texts are equal, in a time that does not depend on where they differ.
bool equalSecrets(std::string_view left, std::string_view right);

/// Returns `bytes` random bytes from the system's secure source, as two lower-case hexadecimal
/// digits each.
std::string randomHexadecimal(std::size_t bytes);

}  // namespace zephyl

#include "Tailnet/Client/ServerIdentity.hpp"

#include <array>
#include <cstdint>

#include <fmt/format.h>

namespace zephyl::sandbox {
namespace {

constexpr auto qualities =
    std::to_array({"Amber", "Brisk", "Calm", "Clear", "Copper", "Early", "Gentle", "Golden",
                   "Merry", "Misty", "Patient", "Quiet", "Silver", "Steady", "Sunny", "Tidy"});
constexpr auto places =
    std::to_array({"Anchor", "Beacon", "Bridge", "Brook", "Cove", "Garden", "Grove", "Harbour",
                   "Hill", "Island", "Lantern", "Meadow", "Mill", "Orchard", "Summit", "Willow"});
/// All dark enough for white text on them.
constexpr auto accents = std::to_array(
    {"#B3261E", "#A8480A", "#8A5A00", "#6B6400", "#4A6B00", "#1E7326", "#00734D", "#00706F",
     "#006A8E", "#1A5FB4", "#3D53C5", "#5B46C2", "#7A3DB8", "#9A2FA0", "#A82A6E", "#5E5C64"});

/// FNV-1a: unlike std::hash, the same on every machine.
std::uint64_t hash(std::string_view text) {
  std::uint64_t value = 0xcbf29ce484222325;
  for (const char character : text) {
    value ^= static_cast<unsigned char>(character);
    value *= 0x100000001b3;
  }
  return value;
}

/// Takes a choice out of the hash and leaves the rest for the next.
template <typename List>
const char* choose(const List& list, std::uint64_t& rest) {
  const auto* choice = list[rest % list.size()];
  rest /= list.size();
  return choice;
}

}  // namespace

ServerIdentity identityOf(std::string_view fingerprint) {
  // The low bits of this hash alone see only the low bits of the text.
  auto rest = hash(fingerprint);
  rest ^= rest >> 32U;
  const auto* quality = choose(qualities, rest);
  const auto* place = choose(places, rest);
  return {.name = fmt::format("{} {}", quality, place), .accent = choose(accents, rest)};
}

}  // namespace zephyl::sandbox

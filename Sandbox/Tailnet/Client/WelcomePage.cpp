#include "Tailnet/Client/WelcomePage.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

#include "System/Data/Format.hpp"

namespace zephyl::sandbox {
namespace {

constexpr auto qualities =
    std::to_array({"Amber", "Brisk", "Calm", "Clear", "Copper", "Early", "Gentle", "Golden",
                   "Merry", "Misty", "Patient", "Quiet", "Silver", "Steady", "Sunny", "Tidy"});
constexpr auto places =
    std::to_array({"Anchor", "Beacon", "Bridge", "Brook", "Cove", "Garden", "Grove", "Harbour",
                   "Hill", "Island", "Lantern", "Meadow", "Mill", "Orchard", "Summit", "Willow"});
/// Colors that are dark enough for white text.
constexpr auto accents = std::to_array(
    {"#B3261E", "#A8480A", "#8A5A00", "#6B6400", "#4A6B00", "#1E7326", "#00734D", "#00706F",
     "#006A8E", "#1A5FB4", "#3D53C5", "#5B46C2", "#7A3DB8", "#9A2FA0", "#A82A6E", "#5E5C64"});

/// Returns the FNV-1a hash, which unlike std::hash is the same on every machine.
std::uint64_t hash(std::string_view text) {
  std::uint64_t value = 0xcbf29ce484222325;
  for (const char character : text) {
    value ^= static_cast<unsigned char>(character);
    value *= 0x100000001b3;
  }
  return value;
}

/// Chooses by a part of the hash, and keeps the rest for the next choice.
template <typename List>
const char* choose(const List& list, std::uint64_t& rest) {
  const auto* choice = list[rest % list.size()];
  rest /= list.size();
  return choice;
}

constexpr auto page = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta name="theme-color" content="{accent}">
<title>{name}</title>
<style>
  :root {{ color-scheme: light dark; --accent: {accent}; }}
  body {{ margin: 0; min-height: 100vh; display: grid; place-items: center;
         font: 16px/1.5 system-ui, sans-serif; background: Canvas; color: CanvasText; }}
  main {{ width: min(34rem, calc(100vw - 2rem)); border-radius: 14px; overflow: hidden;
         border: 1px solid color-mix(in srgb, CanvasText 15%, Canvas); }}
  header {{ background: var(--accent); color: #fff; padding: 2rem; }}
  h1 {{ margin: 0; font-size: 1.9rem; line-height: 1.2; }}
  header p {{ margin: .4rem 0 0; opacity: .9; }}
  dl {{ margin: 0; padding: 1.5rem 2rem; display: grid; grid-template-columns: auto 1fr;
       gap: .6rem 1.5rem; }}
  dt {{ opacity: .65; }}
  dd {{ margin: 0; overflow-wrap: anywhere; }}
  code {{ font: .9em ui-monospace, monospace; }}
  footer {{ padding: 0 2rem 1.5rem; font-size: .85rem; opacity: .65; }}
</style>
</head>
<body>
<main>
<header>
<h1>{name}</h1>
<p>You are connected.</p>
</header>
<dl>
<dt>Target</dt><dd>{target}</dd>
<dt>Fingerprint</dt><dd><code>{fingerprint}</code></dd>
<dt>Control plane</dt><dd>{relay}</dd>
<dt>Accent</dt><dd><code>{accent}</code></dd>
</dl>
<footer>The sandbox simulates this server: the tunnel ends on this machine.</footer>
</main>
</body>
</html>
)";

std::string escaped(std::string_view text) {
  constexpr auto entities = std::to_array<std::pair<char, std::string_view>>(
      {{'&', "&amp;"}, {'<', "&lt;"}, {'>', "&gt;"}, {'"', "&quot;"}, {'\'', "&#39;"}});
  std::string result;
  for (const char character : text) {
    const auto* entity = std::find_if(entities.begin(), entities.end(),
                                      [=](auto& known) { return known.first == character; });
    if (entity != entities.end()) {
      result += entity->second;
    } else {
      result += character;
    }
  }
  return result;
}

}  // namespace

ServerIdentity identityOf(std::string_view fingerprint) {
  // The low bits of this hash depend only on the low bits of the text.
  auto rest = hash(fingerprint);
  rest ^= rest >> 32U;
  const auto* quality = choose(qualities, rest);
  const auto* place = choose(places, rest);
  return {.name = formatText("{} {}", quality, place), .accent = choose(accents, rest)};
}

std::string composeWelcomePage(const PageFacts& facts) {
  const auto target = escaped(facts.target) + (facts.targetResolved ? "" : " (not resolved yet)");
  return formatText(page, fmt::arg("name", escaped(facts.server.name)),
                    fmt::arg("accent", escaped(facts.server.accent)),
                    fmt::arg("fingerprint", escaped(facts.fingerprint)),
                    fmt::arg("relay", escaped(facts.relay)), fmt::arg("target", target));
}

}  // namespace zephyl::sandbox

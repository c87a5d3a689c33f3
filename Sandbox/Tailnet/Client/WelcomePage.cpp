#include "Tailnet/Client/WelcomePage.hpp"

#include <fmt/format.h>

namespace zephyl::sandbox {
namespace {

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
<footer>The sandbox stands in for this server: the tunnel ends on this machine.</footer>
</main>
</body>
</html>
)";

std::string escaped(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (const char character : text) {
    switch (character) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      case '"':
        result += "&quot;";
        break;
      case '\'':
        result += "&#39;";
        break;
      default:
        result += character;
    }
  }
  return result;
}

}  // namespace

std::string composeWelcomePage(const PageFacts& facts) {
  const auto target = escaped(facts.target) + (facts.targetResolved ? "" : " (not resolved yet)");
  return fmt::format(page, fmt::arg("name", escaped(facts.server.name)),
                     fmt::arg("accent", escaped(facts.server.accent)),
                     fmt::arg("fingerprint", escaped(facts.fingerprint)),
                     fmt::arg("relay", escaped(facts.relay)), fmt::arg("target", target));
}

}  // namespace zephyl::sandbox

#include <cstdint>
#include <cstdlib>
#include <optional>

#include "System/Data/Text.hpp"
#include "ZephylTray/Control/HTTPRequest.hpp"

/// Parses any bytes as a request to the control server. A parsed request must be valid, and must
/// not depend on later bytes nor on the pieces in which it arrives.

namespace {

/// Parses `bytes` in two pieces.
std::optional<zephyl::HTTPRequest> parseInPieces(std::string_view bytes) {
  zephyl::HTTPRequestParser parser;
  auto stage = parser.advance(bytes.substr(0, bytes.size() / 2));
  if (stage != zephyl::HTTPRequestParser::Stage::whole) stage = parser.advance(bytes);
  if (stage != zephyl::HTTPRequestParser::Stage::whole) return std::nullopt;
  return parser.request();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const auto request = zephyl::HTTPRequest::parse(bytes);
  if (parseInPieces(bytes) != request) std::abort();
  if (!request) return 0;
  const bool wellFormed = !request->method.empty() && request->body.size() <= size &&
                          request->path.find('?') == std::string::npos &&
                          zephyl::isValidUTF8(request->path);
  if (!wellFormed || zephyl::HTTPRequest::parse(std::string(bytes) + "more") != request) {
    std::abort();
  }
  return 0;
}

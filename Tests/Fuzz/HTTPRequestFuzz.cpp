#include <cstdint>
#include <cstdlib>

#include "System/Text.hpp"
#include "ZephylTray/HTTPRequest.hpp"

/// Any bytes as a request to the control server: nothing crashes, what is taken for a request is
/// one, and it does not depend on what comes after it.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const auto request = zephyl::HTTPRequest::parse(bytes);
  if (!request) return 0;
  const bool wellFormed = !request->method.empty() && request->body.size() <= size &&
                          request->path.find('?') == std::string::npos &&
                          zephyl::isValidUTF8(request->path);
  if (!wellFormed || zephyl::HTTPRequest::parse(std::string(bytes) + "more") != request) {
    std::abort();
  }
  return 0;
}

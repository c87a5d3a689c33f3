#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "ZephylTray/Commands/Protocol/CommandMessages.hpp"

/// Parses any bytes as a line of a command. A parsed request must be equal after it was written and
/// parsed again.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace zephyl;
  const std::string_view line(reinterpret_cast<const char*>(data), size);
  const auto request = parseCommandRequest(line);
  static_cast<void>(parseCommandReply(line));
  if (!request) return 0;
  const SecretString written = encodeCommandRequest(*request);
  const auto again = parseCommandRequest(std::string_view(written).substr(0, written.size() - 1));
  if (!again || encodeCommandRequest(*again) != std::string_view(written)) std::abort();
  return 0;
}

#include "System/Network/HostLookup.hpp"

#include <memory>
#include <utility>

#include <boost/asio/ip/address.hpp>

#include "System/Concurrency/MainLoop.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/Log.hpp"
#include "System/Processes/ChildProcess.hpp"

namespace zephyl {

namespace {

namespace ip = boost::asio::ip;

constexpr auto resolverProgram = "/usr/bin/getent";
constexpr std::size_t maxAddresses = 256;

/// The resolver prints one line per address and socket type. The line begins with the address.
void addAddresses(const OutputLines& output, HostAddresses& addresses) {
  for (const auto& line : output.lines()) {
    if (addresses.size() == maxAddresses) return;
    const auto words = splitNonEmpty(line, ' ');
    if (!words.empty()) addresses.emplace_back(words.front());
  }
}

}  // namespace

void lookUpHost(ProcessLauncher& launcher, MainLoop& mainLoop, const std::string& host,
                std::function<void(const HostAddresses& addresses)> done) {
  const auto finish = mainLoop.later(std::move(done));
  const auto addresses = std::make_shared<HostAddresses>();
  const auto child = launcher.launch({
      .executable = resolverProgram,
      .arguments = {"ahosts", host},
      .environment = currentEnvironment(),
      .onOutput = [addresses](const OutputLines& output) { addAddresses(output, *addresses); },
      .onExit =
          [addresses, finish](ExitStatus status) {
            finish(status == ExitStatus{} ? *addresses : HostAddresses());
          },
  });
  if (child) return;
  log("could not look up {}: {}", host, child.error().message);
  finish(HostAddresses());
}

bool isLoopback(std::string_view address) {
  boost::system::error_code notNumeric;
  const auto parsed = ip::make_address(std::string(address), notNumeric);
  if (notNumeric) return false;
  if (parsed.is_v6() && parsed.to_v6().is_v4_mapped()) {
    return ip::make_address_v4(ip::v4_mapped, parsed.to_v6()).is_loopback();
  }
  return parsed.is_loopback();
}

}  // namespace zephyl

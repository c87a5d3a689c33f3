#include "Tailnet/Daemon/Settings.hpp"

#include <array>
#include <string_view>

#include <fmt/format.h>

#include "Tailnet/Common/Endpoint.hpp"

namespace zephyl::sandbox {
namespace {

constexpr std::string_view onlyNetworking = "userspace-networking";
constexpr std::string_view onlyPort = "0";

constexpr auto options = std::to_array<Option>({
    {"tun", "KIND", "only \"userspace-networking\" is provided for"},
    {"port", "PORT", "only 0, any port, is provided for"},
    {"socks5-server", "HOST:PORT", "serve SOCKS5 on this loopback address"},
    {"statedir", "DIR", "keep the node's identity here"},
    {"socket", "PATH", "be asked through this local socket"},
});

constexpr auto closingHelp = R"(
Every option is needed, its value attached: --port=0. The proxy reaches nothing but this machine.

Environment, for trying things:
  ZEPHYL_SANDBOX_TAILNET_IGNORE_TERM=1   SIGTERM changes nothing
)";

constexpr Program program{.name = "tailscaled",
                          .summary = "a stand-in for the overlay daemon, to try everything with.",
                          .valueForm = ValueForm::attached,
                          .options = options,
                          .closingHelp = closingHelp};

Result<void> expect(const Arguments& arguments, const char* name, std::string_view only) {
  const auto& value = arguments.at(name);
  if (value == only) return {};
  return Failure{fmt::format("--{}={} is not provided for, only {}", name, value, only)};
}

Result<std::variant<Settings, Notice>> interpret(const Arguments& arguments) {
  if (const auto tun = expect(arguments, "tun", onlyNetworking); !tun) return tun.error();
  if (const auto port = expect(arguments, "port", onlyPort); !port) return port.error();
  const auto socks5 = parseLoopbackEndpoint(arguments.at("socks5-server"));
  if (!socks5) return Failure{"--socks5-server: ", socks5.error().message};
  auto misbehaviour = misbehaviourFromEnvironment();
  if (!misbehaviour) return misbehaviour.error();
  // A pair that ended at the same moment would not show which of the two the tray reacts to.
  misbehaviour->exitsAfter.reset();
  return std::variant<Settings, Notice>(Settings{.socks5 = *socks5,
                                                 .stateDirectory = arguments.at("statedir"),
                                                 .controlSocket = arguments.at("socket"),
                                                 .misbehaviour = *misbehaviour});
}

}  // namespace

Result<std::variant<Settings, Notice>> readSettings(std::span<const char* const> words) {
  auto commandLine = readCommandLine(program, words);
  if (!commandLine) return commandLine.error();
  if (auto* notice = std::get_if<Notice>(&*commandLine)) {
    return std::variant<Settings, Notice>(std::move(*notice));
  }
  return interpret(std::get<Arguments>(*commandLine));
}

}  // namespace zephyl::sandbox

#include "Tailnet/Daemon/Settings.hpp"

#include <array>
#include <string_view>

#include "Tailnet/Common/TailnetSettings.hpp"

namespace zephyl::sandbox {
namespace {

constexpr auto daemonOptions = std::to_array<Option>({
    {"tun", "KIND", "only \"userspace-networking\" is provided for"},
    {"port", "PORT", "only 0, any port, is provided for"},
    {"socks5-server", "HOST:PORT", "serve SOCKS5 on this loopback address"},
    {"statedir", "DIR", "keep the node's identity here"},
    {"socket", "PATH", "be asked through this local socket"},
});

constexpr auto daemonHelp = R"(
Every option is needed, its value attached: --port=0. The proxy reaches nothing but this machine.

Environment, for trying things:
  ZEPHYL_SANDBOX_TAILNET_IGNORE_TERM=1   SIGTERM changes nothing
)";

void expect(SettingsReader& reader, const char* option, std::string_view only) {
  const auto value = reader.text(option);
  if (value == only) return;
  reader.fail({"--", option, "=", value, " is not provided for, only ", only});
}

}  // namespace

const Program daemonProgram{.name = "tailscaled",
                            .summary = "a stand-in for the overlay daemon, to try everything with.",
                            .valueForm = ValueForm::attached,
                            .options = daemonOptions,
                            .closingHelp = daemonHelp};

Result<Settings> readSettings(SettingsReader reader) {
  expect(reader, "tun", "userspace-networking");
  expect(reader, "port", "0");
  Settings settings{.socks5 = readEndpoint(reader, "socks5-server"),
                    .stateDirectory = reader.text("statedir"),
                    .controlSocket = reader.text("socket"),
                    .misbehavior = {.ignoresTerm = ignoresTerm(reader)}};
  if (reader.error()) return *reader.error();
  return settings;
}

}  // namespace zephyl::sandbox

#include "Tailnet/Client/Settings.hpp"

#include <array>

#include "System/Data/Text.hpp"
#include "Tailnet/Common/TailnetSettings.hpp"

namespace zephyl::sandbox {
namespace {

constexpr auto companionOptions = std::to_array<Option>({
    {"fingerprint", "FINGERPRINT", "the server's tailnet"},
    {"socks5", "HOST:PORT", "the daemon's SOCKS5 proxy"},
    {"state-dir", "DIR", "remember the enrolment here"},
    {"shim-listen", "HOST:PORT", "listen here for the agent"},
    {"tunnel-listen", "HOST:PORT", "serve the data tunnel here"},
    {"tunnel-fallback", "HOST:PORT", "or here, when the first address cannot be had"},
    {"target", "URL", "the server's web address; discovered when it is not given", false},
});

constexpr auto companionHelp = R"(
All but --target are needed; an option and its value are separate arguments.

Environment:
  ZEPHYL_TAILSCALED_SOCKET               the daemon's control socket
  ZEPHYL_PREAUTH_KEY                     the one-time key to enrol with; "expired" or "used" in it
                                         makes the enrolment fail

For trying things:
  ZEPHYL_SANDBOX_TAILNET_EXIT_AFTER=SECONDS   end by itself, with status 1
  ZEPHYL_SANDBOX_TAILNET_IGNORE_TERM=1        SIGTERM changes nothing
  DIR/fail                               while this file exists, the relay is unreachable
  DIR/resolve                            once this file exists, every target resolves; without it,
                                         hosts below .invalid or with "unresolved" do not
)";

}  // namespace

const Program companionProgram{
    .name = "zephyl-tailnet",
    .summary =
        "a stand-in for the companion that joins a server's tailnet, to try everything with.",
    .valueForm = ValueForm::separate,
    .options = companionOptions,
    .closingHelp = companionHelp};

Result<Settings> readSettings(SettingsReader reader) {
  constexpr auto socketVariable = "ZEPHYL_TAILSCALED_SOCKET";
  Settings settings{.fingerprint = lowerCased(reader.text("fingerprint")),
                    .socks5 = readEndpoint(reader, "socks5"),
                    .stateDirectory = reader.text("state-dir"),
                    .shim = readEndpoint(reader, "shim-listen"),
                    .tunnel = readEndpoint(reader, "tunnel-listen"),
                    .tunnelFallback = readEndpoint(reader, "tunnel-fallback"),
                    .target = reader.find("target"),
                    .controlSocket = reader.text(nullptr, socketVariable),
                    .misbehavior = {.ignoresTerm = ignoresTerm(reader)}};
  if (settings.controlSocket.empty()) reader.fail({socketVariable, " is not set"});
  settings.misbehavior.exitsAfter = reader.seconds(nullptr, "ZEPHYL_SANDBOX_TAILNET_EXIT_AFTER");
  if (reader.error()) return *reader.error();
  return settings;
}

}  // namespace zephyl::sandbox

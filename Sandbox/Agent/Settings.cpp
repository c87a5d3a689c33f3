#include "Agent/Settings.hpp"

#include <array>
#include <string_view>

#include "System/Data/Text.hpp"
#include "System/Files/Directories.hpp"

namespace zephyl::sandbox {
namespace {

using namespace std::chrono_literals;

constexpr auto agentOptions = std::to_array<Option>({
    {"port", "PORT", "serve on this port of 127.0.0.1; 0 picks a free one (8799)", false},
    {"state", "DIR", "keep the state here", false},
    {"embed-rate", "N", "files embedded per second (40)", false},
    {"model-rate", "N", "bytes of the 130 MB model downloaded per second (8700000)", false},
    {"connect-interval", "N", "seconds between checks of each server (2)", false},
    {"stream-keep-alive", "N", "seconds of silence before a comment on event streams (15)", false},
    {"exit-after", "N", "exit after so many seconds", false},
    {"exit-status", "N", "with --exit-after: the exit status (1)", false},
});

constexpr auto agentHelp = R"(
Environment:
  AGENT_TRAY_PORT               port, when --port is not given
  ZEPHYL_AGENT_STATE            state directory, when --state is not given; else Zephyl/agent
                                in $XDG_DATA_HOME or ~/.local/share
  ZEPHYL_SERVERS                JSON list of {"url", "label", "socks5"?, "agentId"?}
  ZEPHYL_STANDALONE             set when run from the packaged runtime
  ZEPHYL_MODEL_CACHE_DIR        the model is there at once when this holds "model.ready"
  ZEPHYL_SANDBOX_FOLDERS        folders to share on the very first start, separated by ":"
  ZEPHYL_SANDBOX_EMBED_RATE     as --embed-rate
  ZEPHYL_SANDBOX_MODEL_RATE     as --model-rate
  ZEPHYL_SANDBOX_MODEL_FAIL=1   the model download fails
  ZEPHYL_SANDBOX_EXIT_STATUS    exit at once with this status

Beside the agent's API it serves, for trying things:
  POST   /sandbox/requests      raise a request that reaches outside a shared folder
                                {"kind"?, "tool"?, "target"?, "root"?, "userName"?, "chatTitle"?,
                                "reasons"?: [{"code", "detail"}]}
  GET    /sandbox/requests/ID   what became of it: pending, approved, denied or withdrawn
  DELETE /sandbox/requests/ID   withdraw it
  POST   /sandbox/activity      {"busy": true, "seconds": 30} forces busy for a while
  GET    /sandbox/search?q=WORD the files that hold a word
)";

std::vector<std::string> splitFolders(const std::string& list) {
  const auto parts = splitNonEmpty(list, ':');
  return {parts.begin(), parts.end()};
}

unsigned short readPort(SettingsReader& reader) {
  constexpr std::int64_t usualPort = 8799;
  auto port = reader.find("port");
  if (!port) {
    // The tray forwards the user's setting. Only a number above 0 is used.
    const auto given = parseDecimal(reader.text(nullptr, "AGENT_TRAY_PORT")).value_or(0);
    port = std::to_string(given > 0 ? given : usualPort);
  }
  return static_cast<unsigned short>(reader.integer("a port", *port, 65535));
}

std::string readStateDirectory(SettingsReader& reader) {
  if (auto given = reader.find("state", "ZEPHYL_AGENT_STATE")) return *given;
  if (const auto data = directories::applicationSupport()) return *data + "/Zephyl/agent";
  reader.fail({"there is no home directory: give --state"});
  return {};
}

Misbehavior readMisbehavior(SettingsReader& reader) {
  constexpr std::int64_t maxStatus = 255;
  constexpr auto statusName = "an exit status";
  Misbehavior misbehavior{.exitsAfter = reader.seconds("exit-after")};
  if (const auto status = reader.find("exit-status")) {
    if (!misbehavior.exitsAfter) reader.fail({"--exit-status needs --exit-after"});
    misbehavior.exitStatus = static_cast<int>(reader.integer(statusName, *status, maxStatus));
  }
  if (const auto atOnce = reader.find(nullptr, "ZEPHYL_SANDBOX_EXIT_STATUS")) {
    misbehavior.exitsAfter = 0ms;
    misbehavior.exitStatus = static_cast<int>(reader.integer(statusName, *atOnce, maxStatus));
  }
  return misbehavior;
}

}  // namespace

const Program agentProgram{.name = "zephyl-agent",
                           .summary = "a stand-in for the local agent, to try everything with.",
                           .valueForm = ValueForm::either,
                           .options = agentOptions,
                           .closingHelp = agentHelp};

Result<Settings> readSettings(SettingsReader reader) {
  constexpr double minInterval = 0.01;
  Settings settings{
      .port = readPort(reader),
      .stateDirectory = readStateDirectory(reader),
      .firstFolders = splitFolders(reader.text(nullptr, "ZEPHYL_SANDBOX_FOLDERS")),
      .servers = reader.text(nullptr, "ZEPHYL_SERVERS"),
      .standalone = reader.find(nullptr, "ZEPHYL_STANDALONE").has_value(),
      .filesEmbeddedPerSecond = reader.number("embed-rate", "ZEPHYL_SANDBOX_EMBED_RATE", 40),
      .modelBytesPerSecond = reader.number("model-rate", "ZEPHYL_SANDBOX_MODEL_RATE", 8'700'000),
      .modelFails = reader.text(nullptr, "ZEPHYL_SANDBOX_MODEL_FAIL") == "1",
      .modelCacheDirectory = reader.text(nullptr, "ZEPHYL_MODEL_CACHE_DIR"),
      .connectInterval = reader.seconds("connect-interval", nullptr, minInterval).value_or(2s),
      .streamKeepAlive = reader.seconds("stream-keep-alive", nullptr, minInterval).value_or(15s),
      .misbehavior = readMisbehavior(reader)};
  if (reader.error()) return *reader.error();
  return settings;
}

}  // namespace zephyl::sandbox

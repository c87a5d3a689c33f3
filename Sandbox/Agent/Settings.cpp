#include "Agent/Settings.hpp"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string_view>

#include <boost/program_options.hpp>
#include <fmt/format.h>

namespace zephyl::sandbox {
namespace options = boost::program_options;
namespace {

constexpr auto environmentHelp = R"(
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

std::string environment(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
}

/// A decimal integer above 0 with an optional sign; anything else does not count.
std::optional<std::int64_t> positiveInteger(std::string_view text) {
  if (text.starts_with('+')) text.remove_prefix(1);
  std::int64_t value = 0;
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (failure != std::errc() || end != text.data() + text.size() || value <= 0) return std::nullopt;
  return value;
}

/// Empty when there is no home directory.
std::string defaultStateDirectory() {
  const auto dataHome = environment("XDG_DATA_HOME");
  if (dataHome.starts_with('/')) return dataHome + "/Zephyl/agent";
  const auto home = environment("HOME");
  return home.empty() ? "" : home + "/.local/share/Zephyl/agent";
}

std::vector<std::string> split(std::string_view list) {
  std::vector<std::string> parts;
  while (!list.empty()) {
    const auto length = std::min(list.find(':'), list.size());
    if (length > 0) parts.emplace_back(list.substr(0, length));
    list.remove_prefix(std::min(length + 1, list.size()));
  }
  return parts;
}

options::options_description describeOptions() {
  options::options_description description("Options");
  auto add = description.add_options();
  const auto number = [] { return options::value<double>()->value_name("N"); };
  add("port", options::value<std::int64_t>()->value_name("PORT"),
      "serve on this port of 127.0.0.1; 0 picks a free one (8799)");
  add("state", options::value<std::string>()->value_name("DIR"), "keep the state here");
  add("embed-rate", number(), "files embedded per second (40)");
  add("model-rate", number(), "bytes of the 130 MB model downloaded per second (8700000)");
  add("connect-interval", number(), "seconds between looks at each server (2)");
  add("stream-keep-alive", number(), "seconds of silence before a comment on event streams (15)");
  add("exit-after", number(), "end by itself after so many seconds");
  add("exit-status", options::value<std::int64_t>()->value_name("N"),
      "with --exit-after: the exit status (1)");
  add("version", "print the version");
  add("help", "print this help");
  return description;
}

std::string helpText() {
  std::ostringstream text;
  text << "zephyl-agent: a stand-in for the local agent, to try everything with.\n\n"
       << describeOptions() << environmentHelp;
  return text.str();
}

/// Gathers the values, keeping the first complaint.
class Source {
 public:
  explicit Source(options::variables_map values) : values_(std::move(values)) {}

  std::string text(const char* option, const char* variable) const {
    return values_.count(option) ? values_[option].as<std::string>() : environment(variable);
  }

  double number(const char* option, const char* variable, double otherwise) {
    if (values_.count(option)) return checked(option, values_[option].as<double>());
    const auto text = environment(variable);
    if (text.empty()) return otherwise;
    double value = -1;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), value);
    const bool whole = failure == std::errc() && end == text.data() + text.size();
    return checked(variable, whole ? value : -1);
  }

  std::chrono::milliseconds seconds(const char* option, double otherwise, double least = 0) {
    const auto value = values_.count(option) ? values_[option].as<double>() : otherwise;
    if (value < least) complain(fmt::format("{} must be at least {}", option, least));
    return std::chrono::milliseconds(std::llround(checked(option, value) * 1000));
  }

  unsigned short port() {
    const auto value = values_.count("port")
                           ? values_["port"].as<std::int64_t>()
                           : positiveInteger(environment("AGENT_TRAY_PORT")).value_or(8799);
    if (value < 0 || value > 65535) complain(fmt::format("{} is not a port", value));
    return static_cast<unsigned short>(value);
  }

  int exitStatus(std::int64_t value) {
    if (value < 0 || value > 255) complain(fmt::format("{} is not an exit status", value));
    return static_cast<int>(value);
  }

  void complain(std::string message) {
    if (!complaint_) complaint_ = badRequest(std::move(message));
  }

  const options::variables_map& values() const { return values_; }
  const std::optional<Rejection>& complaint() const { return complaint_; }

 private:
  double checked(const char* name, double value) {
    constexpr double most = 1e12;
    if (value >= 0 && value <= most) return value;
    complain(fmt::format("{} must be a number from 0", name));
    return 0;
  }

  options::variables_map values_;
  std::optional<Rejection> complaint_;
};

void readExit(Source& source, Settings& settings) {
  const auto& values = source.values();
  if (values.count("exit-after")) {
    settings.exitAfter = source.seconds("exit-after", 0);
    if (values.count("exit-status")) {
      settings.exitStatus = source.exitStatus(values["exit-status"].as<std::int64_t>());
    }
  } else if (values.count("exit-status")) {
    source.complain("--exit-status needs --exit-after");
  }
  const auto atOnce = environment("ZEPHYL_SANDBOX_EXIT_STATUS");
  if (atOnce.empty()) return;
  settings.exitAfter = std::chrono::milliseconds(0);
  settings.exitStatus = atOnce == "0" ? 0 : source.exitStatus(positiveInteger(atOnce).value_or(-1));
}

Outcome<std::variant<Settings, Notice>> gather(Source source) {
  Settings settings{
      .port = source.port(),
      .stateDirectory = source.text("state", "ZEPHYL_AGENT_STATE"),
      .firstFolders = split(environment("ZEPHYL_SANDBOX_FOLDERS")),
      .servers = environment("ZEPHYL_SERVERS"),
      .standalone = !environment("ZEPHYL_STANDALONE").empty(),
      .filesEmbeddedPerSecond = source.number("embed-rate", "ZEPHYL_SANDBOX_EMBED_RATE", 40),
      .modelBytesPerSecond = source.number("model-rate", "ZEPHYL_SANDBOX_MODEL_RATE", 8'700'000),
      .modelFails = environment("ZEPHYL_SANDBOX_MODEL_FAIL") == "1",
      .modelCacheDirectory = environment("ZEPHYL_MODEL_CACHE_DIR"),
      .connectInterval = source.seconds("connect-interval", 2, 0.01),
      .streamKeepAlive = source.seconds("stream-keep-alive", 15, 0.01)};
  if (settings.stateDirectory.empty()) settings.stateDirectory = defaultStateDirectory();
  if (settings.stateDirectory.empty()) source.complain("there is no home directory: give --state");
  readExit(source, settings);
  if (source.complaint()) return *source.complaint();
  return std::variant<Settings, Notice>(std::move(settings));
}

}  // namespace

Outcome<std::variant<Settings, Notice>> readSettings(int argc, const char* const* argv) {
  options::variables_map values;
  try {
    const auto description = describeOptions();
    options::store(options::command_line_parser(argc, argv)
                       .options(description)
                       .positional({})
                       .style(options::command_line_style::unix_style &
                              ~options::command_line_style::allow_guessing)
                       .run(),
                   values);
  } catch (const options::error& error) {
    return badRequest(error.what());
  }
  using Result = std::variant<Settings, Notice>;
  if (values.count("help")) return Result(Notice{helpText()});
  if (values.count("version"))
    return Result(Notice{"zephyl-agent " ZEPHYL_VERSION " (stand-in)\n"});
  return gather(Source(std::move(values)));
}

}  // namespace zephyl::sandbox

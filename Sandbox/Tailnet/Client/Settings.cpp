#include "Tailnet/Client/Settings.hpp"

#include <array>
#include <cstdlib>
#include <string_view>
#include <utility>

#include <boost/algorithm/string/case_conv.hpp>
#include <fmt/format.h>

#include "Tailnet/Common/Endpoint.hpp"

namespace zephyl::sandbox {
namespace {

constexpr auto options = std::to_array<Option>({
    {"fingerprint", "FINGERPRINT", "the server's tailnet"},
    {"socks5", "HOST:PORT", "the daemon's SOCKS5 proxy"},
    {"state-dir", "DIR", "remember the enrolment here"},
    {"shim-listen", "HOST:PORT", "listen here for the agent"},
    {"tunnel-listen", "HOST:PORT", "serve the data tunnel here"},
    {"tunnel-fallback", "HOST:PORT", "or here, when the first address cannot be had"},
    {"target", "URL", "the server's web address; discovered when it is not given", false},
});

constexpr auto closingHelp = R"(
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

constexpr Program program{
    .name = "zephyl-tailnet",
    .summary =
        "a stand-in for the companion that joins a server's tailnet, to try everything with.",
    .valueForm = ValueForm::separate,
    .options = options,
    .closingHelp = closingHelp};

/// Gathers the values, keeping the first complaint.
class Source {
 public:
  explicit Source(const Arguments& arguments) : arguments_(arguments) {}

  const std::string& text(const char* name) const { return arguments_.at(name); }

  std::optional<std::string> optionalText(const char* name) const {
    if (!arguments_.contains(name)) return std::nullopt;
    return text(name);
  }

  boost::asio::ip::tcp::endpoint endpoint(const char* name) {
    const auto parsed = parseLoopbackEndpoint(text(name));
    if (parsed) return *parsed;
    complain(fmt::format("--{}: {}", name, parsed.error().message));
    return {};
  }

  std::string environment(const char* name) {
    const char* value = std::getenv(name);
    if (value && *value != '\0') return value;
    complain(fmt::format("{} is not set", name));
    return {};
  }

  Misbehaviour misbehaviour() {
    const auto read = misbehaviourFromEnvironment();
    if (read) return *read;
    complain(read.error().message);
    return {};
  }

  const std::optional<Failure>& complaint() const { return complaint_; }

 private:
  void complain(const std::string& message) {
    if (!complaint_) complaint_ = Failure{message};
  }

  const Arguments& arguments_;
  std::optional<Failure> complaint_;
};

Result<std::variant<Settings, Notice>> interpret(const Arguments& arguments) {
  Source source(arguments);
  Settings settings{.fingerprint = boost::to_lower_copy(source.text("fingerprint")),
                    .socks5 = source.endpoint("socks5"),
                    .stateDirectory = source.text("state-dir"),
                    .shim = source.endpoint("shim-listen"),
                    .tunnel = source.endpoint("tunnel-listen"),
                    .tunnelFallback = source.endpoint("tunnel-fallback"),
                    .target = source.optionalText("target"),
                    .controlSocket = source.environment("ZEPHYL_TAILSCALED_SOCKET"),
                    .misbehaviour = source.misbehaviour()};
  if (source.complaint()) return *source.complaint();
  return std::variant<Settings, Notice>(std::move(settings));
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

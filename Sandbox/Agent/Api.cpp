#include "Agent/Api.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <string_view>
#include <utility>

#include <boost/url/parse.hpp>
#include <boost/url/url_view.hpp>
#include <fmt/format.h>

#include "Agent/ObjectReader.hpp"
#include "Agent/Text.hpp"

namespace zephyl::sandbox {
namespace json = boost::json;
namespace {

using Answer = Outcome<ApiAnswer>;

/// One request on its way to a handler.
struct Call {
  Agent& agent;
  /// The last segment of a path that ends in "/*".
  std::string id;
  std::string body;
};

ApiAnswer answerWith(const json::object& object, int status = 200) {
  return {.status = status, .body = json::serialize(object)};
}

ApiAnswer done() {
  return answerWith({{"ok", true}});
}

Answer getStatus(Call& call) {
  return answerWith(call.agent.status());
}

Answer getActivity(Call& call) {
  return ApiAnswer{.body = *call.agent.activity()};
}

Answer getRoots(Call& call) {
  return answerWith(call.agent.roots());
}

Answer addRoot(Call& call) {
  auto body = ObjectReader::parse(call.body);
  const auto root = body.string("root");
  const auto name = body.optionalString("name");
  const auto servers = body.optionalStrings("servers");
  if (body.problem()) return *body.problem();
  if (const auto shared = call.agent.share(root, name, servers); !shared) return shared.error();
  return answerWith(call.agent.roots());
}

Answer removeRoot(Call& call) {
  auto body = ObjectReader::parse(call.body);
  const auto root = body.string("root");
  if (body.problem()) return *body.problem();
  if (const auto removed = call.agent.unshare(root); !removed) return removed.error();
  return answerWith(call.agent.roots());
}

Answer setRootServers(Call& call) {
  auto body = ObjectReader::parse(call.body);
  const auto root = body.string("root");
  const auto servers = body.strings("servers");
  if (body.problem()) return *body.problem();
  const auto changed = call.agent.setServers(root, servers);
  if (!changed) return changed.error();
  return answerWith(call.agent.roots());
}

std::optional<Decision> parseDecision(std::string_view text) {
  if (text == "approve") return Decision::approve;
  if (text == "always") return Decision::always;
  if (text == "deny") return Decision::deny;
  return std::nullopt;
}

Answer decideApproval(Call& call) {
  constexpr std::string_view confirmation = "ALWAYS ALLOW";
  auto body = ObjectReader::parse(call.body);
  const auto id = body.string("id");
  const auto text = body.string("decision");
  const auto confirm = body.optionalString("confirm");
  if (body.problem()) return *body.problem();
  const auto decision = parseDecision(text);
  if (!decision) return badRequest("the decision is not \"approve\", \"always\" or \"deny\"");
  if (decision == Decision::always && confirm && *confirm != confirmation) {
    return badRequest("the confirmation does not match");
  }
  if (const auto decided = call.agent.decide(id, *decision); !decided) return decided.error();
  return done();
}

Answer revokeGrant(Call& call) {
  auto body = ObjectReader::parse(call.body);
  const auto kind = body.string("kind");
  const auto path = body.string("path");
  if (body.problem()) return *body.problem();
  if (const auto revoked = call.agent.revoke(kind, path); !revoked) return revoked.error();
  return answerWith(call.agent.grants());
}

/// The text under the key; what is given as null is absent, what is not given is the default.
std::optional<std::string> optionalOr(ObjectReader& body, std::string_view key, const char* usual) {
  return body.has(key) ? body.optionalString(key) : std::optional<std::string>(usual);
}

std::vector<EscapeReason> readReasons(ObjectReader& body, const PendingApproval& request) {
  std::vector<EscapeReason> reasons;
  const auto list = body.optionalArray("reasons");
  if (!list) {
    return {{.code = "outside-root",
             .detail = fmt::format("{} reaches outside {}", request.target, request.root)}};
  }
  for (const auto& element : *list) {
    ObjectReader reason(element);
    reasons.push_back({.code = reason.string("code"), .detail = reason.string("detail")});
    if (reason.problem()) body.reject("in \"reasons\": " + reason.problem()->message);
  }
  return reasons;
}

Answer raiseRequest(Call& call) {
  auto body = ObjectReader::parse(call.body.empty() ? "{}" : call.body);
  PendingApproval request;
  request.kind = body.optionalString("kind").value_or("shell");
  const bool shell = request.kind == "shell";
  request.tool = body.optionalString("tool").value_or(shell ? "run_command" : "read_file");
  request.target = body.optionalString("target").value_or(shell ? "cat /etc/hosts" : "/etc/hosts");
  request.userName = optionalOr(body, "userName", "Sam Example");
  request.chatTitle = optionalOr(body, "chatTitle", "Trying things");
  const auto wantedRoot = body.optionalString("root");
  if (body.problem()) return *body.problem();
  auto root = call.agent.requestRoot(wantedRoot);
  if (!root) return root.error();
  request.root = *std::move(root);
  request.reasons = readReasons(body, request);
  if (body.problem()) return *body.problem();
  const auto held = call.agent.raise(std::move(request));
  if (!held) return held.error();
  if (!*held) return answerWith({{"granted", true}});
  return answerWith({{"id", **held}}, 202);
}

Answer getRequest(Call& call) {
  const auto state = call.agent.requestState(call.id);
  if (!state) return state.error();
  return answerWith({{"id", call.id}, {"state", name(*state)}});
}

Answer withdrawRequest(Call& call) {
  if (const auto withdrawn = call.agent.withdraw(call.id); !withdrawn) return withdrawn.error();
  return done();
}

Answer setActivity(Call& call) {
  constexpr double longest = 3600;
  auto body = ObjectReader::parse(call.body);
  const bool busy = body.boolean("busy");
  const auto seconds = body.optionalNumber("seconds").value_or(30);
  if (!(seconds >= 0 && seconds <= longest)) body.reject("expected \"seconds\" from 0 to 3600");
  if (body.problem()) return *body.problem();
  call.agent.forceBusy(std::chrono::milliseconds(busy ? std::llround(seconds * 1000) : 0));
  return done();
}

struct Route {
  std::string_view method;
  std::string_view path;
  Answer (*handler)(Call&);
};

constexpr std::array<Route, 12> routes{{{"GET", "/api/status", getStatus},
                                        {"GET", "/api/activity", getActivity},
                                        {"GET", "/api/roots", getRoots},
                                        {"POST", "/api/roots", addRoot},
                                        {"DELETE", "/api/roots", removeRoot},
                                        {"PATCH", "/api/roots", setRootServers},
                                        {"POST", "/api/approvals", decideApproval},
                                        {"DELETE", "/api/escape-grants", revokeGrant},
                                        {"POST", "/sandbox/requests", raiseRequest},
                                        {"GET", "/sandbox/requests/*", getRequest},
                                        {"DELETE", "/sandbox/requests/*", withdrawRequest},
                                        {"POST", "/sandbox/activity", setActivity}}};

/// The template that a path falls under, and the id that it holds.
std::pair<std::string, std::string> templateOf(const std::string& path) {
  constexpr std::string_view prefix = "/sandbox/requests/";
  if (!path.starts_with(prefix) || path.size() == prefix.size()) return {path, {}};
  return {std::string(prefix) + '*', path.substr(prefix.size())};
}

/// Answered before the table is looked at: the one by the server, the other over time.
constexpr std::array<std::string_view, 2> furtherReads{"/api/events", "/sandbox/search"};

ApiAnswer toAnswer(const Rejection& failure) {
  return answerWith({{"error", toUtf8(failure.message)}}, failure.status);
}

ApiAnswer dispatch(Agent& agent, const ApiRequest& request, const std::string& path) {
  const auto [wanted, id] = templateOf(path);
  const bool isFurther =
      std::find(furtherReads.begin(), furtherReads.end(), path) != furtherReads.end();
  std::string allow = isFurther ? "GET" : "";
  for (const auto& route : routes) {
    if (route.path != wanted) continue;
    if (route.method == request.method) {
      Call call{.agent = agent, .id = id, .body = request.body};
      auto answer = route.handler(call);
      return answer ? *std::move(answer) : toAnswer(answer.error());
    }
    allow += (allow.empty() ? "" : ", ") + std::string(route.method);
  }
  if (allow.empty()) return toAnswer(notFound("no such endpoint"));
  auto answer = toAnswer(Rejection(405, "that method is not for this endpoint"));
  answer.allow = allow;
  return answer;
}

void search(Agent& agent, const boost::urls::url_view& url, const Api::OnAnswer& onAnswer) {
  const auto params = url.params();
  const auto found = params.find("q");
  if (found == params.end() || !isUtf8((*found).value)) {
    onAnswer(toAnswer(badRequest("expected ?q=WORD")));
    return;
  }
  agent.search((*found).value, [onAnswer](const std::vector<std::string>& files) {
    onAnswer(answerWith({{"files", json::value_from(files)}}));
  });
}

}  // namespace

void Api::answer(const ApiRequest& request, const OnAnswer& onAnswer) {
  const auto url = boost::urls::parse_origin_form(request.target);
  if (!url) {
    onAnswer(toAnswer(badRequest("the request's target is not a path")));
    return;
  }
  const std::string path(url->encoded_path().data(), url->encoded_path().size());
  if (request.method == "GET" && path == "/sandbox/search") {
    search(agent_, *url, onAnswer);
  } else {
    onAnswer(dispatch(agent_, request, path));
  }
}

}  // namespace zephyl::sandbox

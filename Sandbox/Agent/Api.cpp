#include "Agent/Api.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>
#include <utility>

#include <boost/beast/core/string.hpp>
#include <boost/url/parse.hpp>
#include <boost/url/url_view.hpp>

#include "System/Data/JSON.hpp"
#include "System/Data/Text.hpp"

namespace zephyl::sandbox {
namespace asio = boost::asio;
namespace http = boost::beast::http;
namespace {

constexpr std::string_view requestsPrefix = "/sandbox/requests/";

/// A request with its context for a handler.
struct Call {
  Agent& agent;
  /// The last segment of a path that ends in "/*".
  std::string id;
  const std::string& body;
};

HTTPResponse answerWith(const json::Value& value, unsigned status = 200) {
  return httpResponse(status, "application/json", json::compact(value));
}

/// Returns {"ok": true}, or the error with the status.
HTTPResponse answerWith(const Result<void>& result, unsigned errorStatus) {
  if (!result) return errorResponse(errorStatus, result.error().message);
  return answerWith(json::Object{{"ok", true}});
}

/// Returns a handler of requests whose body is a record.
template <typename Body, HTTPResponse (*handler)(Agent&, const Body&)>
HTTPResponse withBody(Call& call) {
  const auto body = json::decodeText<Body>(call.body);
  if (!body) return errorResponse(400, "the request's body: " + body.error().message);
  return handler(call.agent, *body);
}

HTTPResponse getStatus(Call& call) {
  return answerWith(call.agent.status());
}

HTTPResponse getActivity(Call& call) {
  return httpResponse(200, "application/json", *call.agent.activity());
}

HTTPResponse getRoots(Call& call) {
  return answerWith(call.agent.roots());
}

HTTPResponse rootsAfter(Agent& agent, const Result<void>& change, unsigned errorStatus) {
  return change ? answerWith(agent.roots()) : answerWith(change, errorStatus);
}

struct NewRoot {
  std::string root;
  std::optional<std::string> name;
  std::optional<std::vector<std::string>> servers;
};
BOOST_DESCRIBE_STRUCT(NewRoot, (), (root, name, servers))

HTTPResponse addRoot(Agent& agent, const NewRoot& body) {
  const auto root = Folders::canonical(body.root);
  if (!root) return errorResponse(400, root.error().message);
  if (!*root) return errorResponse(404, "there is no folder " + body.root);
  return rootsAfter(agent, agent.share(**root, body.name, body.servers), 409);
}

struct OldRoot {
  std::string root;
};
BOOST_DESCRIBE_STRUCT(OldRoot, (), (root))

HTTPResponse removeRoot(Agent& agent, const OldRoot& body) {
  return rootsAfter(agent, agent.unshare(body.root), 404);
}

struct RootServers {
  std::string root;
  std::vector<std::string> servers;
};
BOOST_DESCRIBE_STRUCT(RootServers, (), (root, servers))

HTTPResponse setRootServers(Agent& agent, const RootServers& body) {
  return rootsAfter(agent, agent.setServers(body.root, body.servers), 404);
}

struct ApprovalDecision {
  std::string id;
  Decision decision = Decision::deny;
  std::optional<std::string> confirm;
};
BOOST_DESCRIBE_STRUCT(ApprovalDecision, (), (id, decision, confirm))

HTTPResponse decideApproval(Agent& agent, const ApprovalDecision& body) {
  constexpr std::string_view confirmation = "ALWAYS ALLOW";
  if (body.decision == Decision::always && body.confirm.value_or("ALWAYS ALLOW") != confirmation) {
    return errorResponse(400, "the confirmation does not match");
  }
  return answerWith(agent.decide(body.id, body.decision), 404);
}

struct OldGrant {
  std::string kind;
  std::string path;
};
BOOST_DESCRIBE_STRUCT(OldGrant, (), (kind, path))

HTTPResponse revokeGrant(Agent& agent, const OldGrant& body) {
  const auto revoked = agent.revoke(body.kind, body.path);
  return revoked ? answerWith(agent.grants()) : answerWith(revoked, 404);
}

struct NewRequest {
  std::optional<std::string> kind;
  std::optional<std::string> tool;
  std::optional<std::string> target;
  std::optional<std::string> root;
  std::optional<std::vector<EscapeReason>> reasons;
  std::optional<std::string> userName;
  std::optional<std::string> chatTitle;
};
BOOST_DESCRIBE_STRUCT(NewRequest, (), (kind, tool, target, root, reasons, userName, chatTitle))

/// Absent names of user and chat get default values. Null omits them.
void fillIn(NewRequest& request, const json::Object& given) {
  if (!given.contains("userName")) request.userName = "Sam Example";
  if (!given.contains("chatTitle")) request.chatTitle = "Trying things";
}

PendingApproval toApproval(NewRequest request, std::string root) {
  PendingApproval approval{.kind = request.kind.value_or("shell"), .root = std::move(root)};
  const bool shell = approval.kind == "shell";
  approval.tool = request.tool.value_or(shell ? "run_command" : "read_file");
  approval.target = request.target.value_or(shell ? "cat /etc/hosts" : "/etc/hosts");
  const EscapeReason usual{.code = "outside-root",
                           .detail = approval.target + " reaches outside " + approval.root};
  approval.reasons = request.reasons.value_or(std::vector{usual});
  approval.userName = std::move(request.userName);
  approval.chatTitle = std::move(request.chatTitle);
  return approval;
}

HTTPResponse raiseRequest(Call& call) {
  const auto value = json::parse(call.body.empty() ? "{}" : call.body);
  auto body = value ? json::decode<NewRequest>(*value) : Result<NewRequest>(value.error());
  if (!body) return errorResponse(400, "the request's body: " + body.error().message);
  fillIn(*body, value->get_object());
  const auto shared = call.agent.folders().shared();
  if (!body->root && shared.empty()) return errorResponse(409, "no folder is shared");
  const auto root = call.agent.folders().find(body->root ? *body->root : shared.front().root);
  if (!root) return errorResponse(404, root.error().message);
  const auto held = call.agent.raise(toApproval(*std::move(body), *root));
  if (!held) return errorResponse(409, held.error().message);
  if (!*held) return answerWith(json::Object{{"granted", true}});
  return answerWith(json::Object{{"id", **held}}, 202);
}

HTTPResponse getRequest(Call& call) {
  const auto state = call.agent.approvals().stateOf(call.id);
  if (!state) return errorResponse(404, state.error().message);
  return answerWith(json::Object{{"id", call.id}, {"state", nameOf(*state)}});
}

HTTPResponse withdrawRequest(Call& call) {
  return answerWith(call.agent.withdraw(call.id), 404);
}

struct ForcedActivity {
  bool busy = false;
  std::optional<double> seconds;
};
BOOST_DESCRIBE_STRUCT(ForcedActivity, (), (busy, seconds))

HTTPResponse setActivity(Agent& agent, const ForcedActivity& body) {
  constexpr double maxSeconds = 3600;
  const auto seconds = body.seconds.value_or(30);
  if (!(seconds >= 0 && seconds <= maxSeconds)) {
    return errorResponse(400, "expected \"seconds\" from 0 to 3600");
  }
  agent.forceBusy(std::chrono::milliseconds(body.busy ? std::llround(seconds * 1000) : 0));
  return answerWith(Result<void>(), 500);
}

struct Route {
  std::string_view method;
  std::string_view path;
  HTTPResponse (*handler)(Call&);
};

constexpr auto routes = std::to_array<Route>({
    {"GET", "/api/status", getStatus},
    {"GET", "/api/activity", getActivity},
    {"GET", "/api/roots", getRoots},
    {"POST", "/api/roots", withBody<NewRoot, addRoot>},
    {"DELETE", "/api/roots", withBody<OldRoot, removeRoot>},
    {"PATCH", "/api/roots", withBody<RootServers, setRootServers>},
    {"POST", "/api/approvals", withBody<ApprovalDecision, decideApproval>},
    {"DELETE", "/api/escape-grants", withBody<OldGrant, revokeGrant>},
    {"POST", "/sandbox/requests", raiseRequest},
    {"GET", "/sandbox/requests/*", getRequest},
    {"DELETE", "/sandbox/requests/*", withdrawRequest},
    {"POST", "/sandbox/activity", withBody<ForcedActivity, setActivity>},
    // Handled by EventStream.
    {"GET", "/api/events", nullptr},
    {"GET", "/sandbox/search", nullptr},
});

HTTPResponse dispatch(Agent& agent, const HTTPRequest& request) {
  std::string path(pathOf(request));
  std::string id;
  if (path.starts_with(requestsPrefix) && path.size() > requestsPrefix.size()) {
    id = path.substr(requestsPrefix.size());
    path.replace(requestsPrefix.size(), id.size(), "*");
  }
  std::string allow;
  for (const auto& route : routes) {
    if (route.path != path) continue;
    if (route.handler && route.method == request.method_string()) {
      Call call{.agent = agent, .id = id, .body = request.body()};
      return route.handler(call);
    }
    allow += (allow.empty() ? "" : ", ") + std::string(route.method);
  }
  if (allow.empty()) return errorResponse(404, "no such endpoint");
  auto response = errorResponse(405, "that method is not for this endpoint");
  response.set(http::field::allow, allow);
  return response;
}

/// Returns the decoded parameter "q" of the request's query.
std::optional<std::string> searchedWord(const HTTPRequest& request) {
  const auto url = boost::urls::parse_origin_form(request.target());
  if (!url) return std::nullopt;
  const auto params = url->params();
  const auto found = params.find("q");
  if (found == params.end() || !isValidUTF8((*found).value)) return std::nullopt;
  return (*found).value;
}

}  // namespace

HTTPResponse errorResponse(unsigned status, std::string_view message) {
  return answerWith(json::Object{{"error", visible(message)}}, status);
}

asio::awaitable<HTTPResponse> answerRequest(Agent& agent, const HTTPRequest& request) {
  if (!boost::urls::parse_origin_form(request.target())) {
    co_return errorResponse(400, "the request's target is not a path");
  }
  if (request.method() != http::verb::get || pathOf(request) != "/sandbox/search") {
    co_return dispatch(agent, request);
  }
  const auto word = searchedWord(request);
  if (!word) co_return errorResponse(400, "expected ?q=WORD");
  const auto files = co_await agent.search(*word);
  co_return answerWith(json::Object{{"files", json::encode(files)}});
}

bool isFromThisMachine(const HTTPRequest& request) {
  const auto host = request.find(http::field::host);
  const auto origin = request.find(http::field::origin);
  if (host == request.end()) return origin == request.end();
  const std::string value(host->value());
  const auto portStart = value.rfind(':');
  const bool hasPort = portStart != std::string::npos && !value.ends_with(']');
  const auto name = lowerCased(hasPort ? value.substr(0, portStart) : value);
  if (name != "127.0.0.1" && name != "[::1]" && name != "localhost") return false;
  return origin == request.end() || origin->value() == "http://" + value;
}

}  // namespace zephyl::sandbox

#include "ZephylTray/Agent/AgentClient.hpp"

#include "System/Data/Format.hpp"
#include "System/Data/Text.hpp"

namespace zephyl {

namespace {

constexpr auto statusPath = "/api/status";
constexpr auto activityPath = "/api/activity";
constexpr auto rootsPath = "/api/roots";
constexpr auto approvalsPath = "/api/approvals";
constexpr auto grantsPath = "/api/escape-grants";

/// The limit of an error text, which is shown in a window and logged.
constexpr std::size_t maxErrorBytes = 2000;

struct RootsResponse {
  std::vector<SharedRoot> roots;
};
BOOST_DESCRIBE_STRUCT(RootsResponse, (), (roots))

struct GrantsResponse {
  std::vector<EscapeGrant> escapeGrants;
};
BOOST_DESCRIBE_STRUCT(GrantsResponse, (), (escapeGrants))

struct ErrorResponse {
  std::optional<std::string> error;
};
BOOST_DESCRIBE_STRUCT(ErrorResponse, (), (error))

/// Returns a completion that decodes an answer as `Record` and passes `part` of it to `done`.
template <typename Record, typename Value, typename Part>
auto decoding(std::function<void(Result<Value>)> done, Part part) {
  return [done = std::move(done), part](Result<std::string> body) {
    if (!body) return done(body.error());
    Result<Record> record = json::decodeText<Record>(*body);
    if (!record) return done(record.error());
    done(part(std::move(*record)));
  };
}

template <typename Record>
auto decoding(std::function<void(Result<Record>)> done) {
  return decoding<Record>(std::move(done), [](Record record) { return record; });
}

auto decodingRoots(AgentClient::Completion<std::vector<SharedRoot>> done) {
  return decoding<RootsResponse>(std::move(done),
                                 [](RootsResponse response) { return std::move(response.roots); });
}

json::Value list(const std::vector<std::string>& texts) {
  return json::encode(texts);
}

APIError refusal(const ClientResponse& response) {
  const auto decoded = json::decodeText<ErrorResponse>(response.body);
  if (decoded && decoded->error) return {shortened(*decoded->error, maxErrorBytes)};
  return {formatText("request failed ({})", response.status)};
}

}  // namespace

/// The main thread sees the end alone, so that a poll wakes it once.
void AgentClient::poll(Completion<AgentPoll> done) const {
  const auto found = std::make_shared<AgentPoll>();
  const Completion<AgentPoll> finish = onMainLoop(std::move(done));
  const auto receiveActivity = [found, finish](Result<Activity> activity) {
    if (activity) found->activity = std::move(*activity);
    finish(std::move(*found));
  };
  const auto receiveRoots = [client = *this, found, finish,
                             receiveActivity](Result<std::vector<SharedRoot>> roots) {
    if (!roots) return finish(roots.error());
    found->roots = std::move(*roots);
    client.get(activityPath, decoding<Activity>(receiveActivity));
  };
  const auto receiveStatus = [client = *this, found, finish,
                              receiveRoots](Result<AgentStatus> status) {
    if (!status) return finish(status.error());
    found->status = std::move(*status);
    client.get(rootsPath, decodingRoots(receiveRoots));
  };
  get(statusPath, decoding<AgentStatus>(receiveStatus));
}

void AgentClient::getRoots(Completion<std::vector<SharedRoot>> done) const {
  get(rootsPath, decodingRoots(onMainLoop(std::move(done))));
}

void AgentClient::addRoot(const std::string& path, const std::optional<std::string>& name,
                          const std::vector<std::string>& servers,
                          Completion<std::vector<SharedRoot>> done) const {
  json::Object body{{"root", path}};
  if (name && !name->empty()) body["name"] = *name;
  if (!servers.empty()) body["servers"] = list(servers);
  sendJSON("POST", rootsPath, body, decodingRoots(onMainLoop(std::move(done))));
}

void AgentClient::removeRoot(const std::string& path,
                             Completion<std::vector<SharedRoot>> done) const {
  sendJSON("DELETE", rootsPath, {{"root", path}}, decodingRoots(onMainLoop(std::move(done))));
}

void AgentClient::setRootServers(const std::string& path, const std::vector<std::string>& servers,
                                 Completion<std::vector<SharedRoot>> done) const {
  sendJSON("PATCH", rootsPath, {{"root", path}, {"servers", list(servers)}},
           decodingRoots(onMainLoop(std::move(done))));
}

void AgentClient::decideApproval(const std::string& id, const std::string& decision,
                                 const std::optional<std::string>& confirm,
                                 Completion<void> done) const {
  json::Object body{{"id", id}, {"decision", decision}};
  if (confirm) body["confirm"] = *confirm;
  sendJSON("POST", approvalsPath, body,
           [done = onMainLoop(std::move(done))](const Result<std::string>& answer) {
             done(answer ? Result<void>() : answer.error());
           });
}

void AgentClient::revokeEscapeGrant(const std::string& kind, const std::string& path,
                                    Completion<std::vector<EscapeGrant>> done) const {
  sendJSON("DELETE", grantsPath, {{"kind", kind}, {"path", path}},
           decoding<GrantsResponse>(onMainLoop(std::move(done)), [](GrantsResponse response) {
             return std::move(response.escapeGrants);
           }));
}

void AgentClient::get(const std::string& path, Answer done) const {
  // The status is ignored: the body alone decides whether the request succeeded.
  session_
      .send({.url = base_ + path},
            [done = std::move(done)](Result<ClientResponse> response) {
              if (!response) return done(response.error());
              done(std::move(response->body));
            })
      .detach();
}

void AgentClient::sendJSON(std::string method, const std::string& path, const json::Object& body,
                           Answer done) const {
  ClientRequest request{.method = std::move(method),
                        .url = base_ + path,
                        .contentType = "application/json",
                        .body = json::compact(body)};
  session_
      .send(std::move(request),
            [done = std::move(done)](Result<ClientResponse> response) {
              if (!response) return done(response.error());
              if (response->status < 200 || response->status > 299) return done(refusal(*response));
              done(std::move(response->body));
            })
      .detach();
}

}  // namespace zephyl

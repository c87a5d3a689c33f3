#include "Desktop/Freedesktop/FolderPortal.hpp"

#include <array>
#include <charconv>
#include <climits>
#include <utility>

#include <unistd.h>

#include "Desktop/Freedesktop/Bus/BusText.hpp"
#include "System/Data/Secret.hpp"
#include "System/Data/Text.hpp"

namespace zephyl {

namespace {

constexpr const char* portalName = "org.freedesktop.portal.Desktop";
constexpr const char* portalPath = "/org/freedesktop/portal/desktop";
constexpr BusAddress properties{portalName, portalPath, "org.freedesktop.DBus.Properties"};
constexpr BusAddress fileChooser{portalName, portalPath, "org.freedesktop.portal.FileChooser"};
constexpr std::uint32_t versionWithDirectories = 3;
constexpr std::uint32_t success = 0;
constexpr std::size_t tokenBytes = 16;

/// Returns the first of the chosen files in a response's results.
std::optional<std::string> firstURI(sd_bus_message& signal) {
  if (sd_bus_message_enter_container(&signal, 'a', "{sv}") <= 0) return std::nullopt;
  while (sd_bus_message_enter_container(&signal, 'e', "sv") > 0) {
    const bool isURIs = readString(signal) == "uris";
    if (isURIs && sd_bus_message_enter_container(&signal, 'v', "as") > 0 &&
        sd_bus_message_enter_container(&signal, 'a', "s") > 0) {
      return readString(signal);
    }
    sd_bus_message_skip(&signal, "v");
    sd_bus_message_exit_container(&signal);
  }
  return std::nullopt;
}

void writeQuestion(BusWriter& writer, const FolderRequest& request, const std::string& token) {
  writer.append("ss", "", visibleLines(request.message).c_str())
      .open('a', "{sv}")
      .append("{sv}", "handle_token", "s", token.c_str())
      .append("{sv}", "accept_label", "s", visibleLines(request.prompt).c_str())
      .append("{sv}", "directory", "b", 1)
      .close();
}

bool isThisMachine(std::string_view host) {
  std::array<char, HOST_NAME_MAX + 1> name{};
  ::gethostname(name.data(), name.size() - 1);
  return host.empty() || host == "localhost" || host == name.data();
}

}  // namespace

std::optional<std::string> pathOfFileURI(std::string_view uri) {
  constexpr std::string_view scheme = "file://";
  if (!uri.starts_with(scheme)) return std::nullopt;
  uri.remove_prefix(scheme.size());
  const auto start = uri.find('/');
  if (start == std::string_view::npos || !isThisMachine(uri.substr(0, start))) return std::nullopt;
  std::string path;
  for (std::size_t i = start; i < uri.size(); ++i) {
    if (uri[i] != '%') {
      path += uri[i];
      continue;
    }
    unsigned code = 0;
    const auto digits = uri.substr(i + 1, 2);
    const auto [end, failure] = std::from_chars(digits.begin(), digits.end(), code, 16);
    if (failure != std::errc() || end != digits.begin() + 2 || code == 0) return std::nullopt;
    path += static_cast<char>(code);
    i += 2;
  }
  return path;
}

void FolderPortal::connected(BusConnection& connection) {
  connection_ = &connection;
  portal_.watch(connection, [this, before = std::string()](const std::string& owner) mutable {
    const auto previous = std::exchange(before, owner);
    if (!previous.empty() && owner != previous)
      failAll("The folder chooser ended before a folder was chosen.");
  });
}

void FolderPortal::disconnected() {
  connection_ = nullptr;
  portal_.forget();
  failAll("The connection to the session bus was lost before a folder was chosen.");
}

void FolderPortal::choose(const FolderRequest& request, Done done) {
  const auto token = "zephyl_tray_" + randomHexadecimal(tokenBytes);
  Question& question = questions_[token];
  question.request = request;
  question.done = std::move(done);
  if (connection_ == nullptr) {
    return fail(token, Error{"There is no session bus to choose a folder through."});
  }
  const auto call = connection_->newCall(properties, "Get");
  BusWriter(call.get()).append("ss", fileChooser.interface, "version");
  question.call = connection_->call(
      call,
      [this, token](sd_bus_message& reply) {
        std::uint32_t version = 0;
        if (isError(reply)) {
          return fail(token, Error{"There is no folder chooser: ", errorText(reply)});
        }
        const bool read =
            portal_.sent(reply) && sd_bus_message_read(&reply, "v", "u", &version) > 0;
        if (read && version >= versionWithDirectories) return ask(token);
        fail(token, Error{"The desktop's file chooser cannot choose folders."});
      },
      startTimeout);
  if (!question.call) fail(token, Error{"The folder chooser could not be called."});
}

void FolderPortal::ask(const std::string& token) {
  Question& question = questions_.at(token);
  // Subscribes before the call, because the response could arrive before the reply.
  awaitResponse(token, portalRequestPath(connection_->uniqueName(), token));
  const auto call = connection_->newCall(fileChooser, "OpenFile");
  BusWriter writer(call.get());
  writeQuestion(writer, question.request, token);
  if (writer.status() >= 0) {
    question.call = connection_->call(
        call, [this, token](sd_bus_message& reply) { handleReply(token, reply); },
        BusConnection::noTimeout);
  } else {
    question.call.reset();
  }
  if (!question.call) return fail(token, Error{"The folder chooser could not be called."});
  question.limit = bus_.after(startTimeout, [this, token] { handleTimeout(token); });
}

void FolderPortal::handleReply(const std::string& token, sd_bus_message& reply) {
  const auto found = questions_.find(token);
  if (found == questions_.end()) return;
  Question& question = found->second;
  const char* handle = nullptr;
  const bool valid =
      !isError(reply) && portal_.sent(reply) && sd_bus_message_read_basic(&reply, 'o', &handle) > 0;
  if (!question.done) {  // timed out meanwhile
    if (valid) close(handle);
    questions_.erase(found);
    return;
  }
  if (!valid) {
    const auto reason = isError(reply) ? errorText(reply) : "its reply is not valid";
    return fail(token, Error{"The folder chooser could not be shown: ", reason});
  }
  question.call.reset();
  question.limit.cancel();
  if (portalRequestPath(connection_->uniqueName(), token) != handle) awaitResponse(token, handle);
}

void FolderPortal::handleTimeout(const std::string& token) {
  const auto found = questions_.find(token);
  if (found == questions_.end() || !found->second.call || !found->second.done) return;
  found->second.response.reset();
  const auto done = std::exchange(found->second.done, nullptr);
  done(FolderChoice::unanswered(Error{"The folder chooser does not answer."}));
}

void FolderPortal::close(const std::string& handle) const {
  const auto call = connection_->newCall(
      {portal_.owner().c_str(), handle.c_str(), "org.freedesktop.portal.Request"}, "Close");
  if (!call) return;
  sd_bus_message_set_expect_reply(call.get(), 0);
  connection_->send(call);
}

void FolderPortal::awaitResponse(const std::string& token, const std::string& path) {
  questions_.at(token).response = portal_.subscribe(
      *connection_,
      "interface='org.freedesktop.portal.Request',member='Response',path='" + path + "'",
      [this, token](sd_bus_message& signal) { handleResponse(token, signal); });
}

void FolderPortal::handleResponse(const std::string& token, sd_bus_message& signal) {
  std::uint32_t response = 0;
  if (sd_bus_message_read(&signal, "u", &response) <= 0) return;
  if (response != success) return finish(token, {.answer = std::optional<std::string>()});
  const auto uri = firstURI(signal);
  auto path = uri ? pathOfFileURI(*uri) : std::nullopt;
  if (!path) {
    return finish(token, {.answer = Error{"The folder chooser returned no folder on this machine. "
                                          "Choose one on a local disk."}});
  }
  finish(token, {.answer = std::move(path)});
}

void FolderPortal::finish(const std::string& token, FolderChoice choice) {
  auto question = questions_.extract(token);
  if (!question.empty() && question.mapped().done) question.mapped().done(std::move(choice));
}

void FolderPortal::failAll(const char* reason) {
  for (auto& [token, question] : std::exchange(questions_, {})) {
    if (question.done) question.done(FolderChoice::unanswered(Error{reason}));
  }
}

}  // namespace zephyl

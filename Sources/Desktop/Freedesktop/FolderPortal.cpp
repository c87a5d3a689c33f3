#include "Desktop/Freedesktop/FolderPortal.hpp"

#include <charconv>
#include <utility>

#include "Desktop/Freedesktop/BusText.hpp"
#include "System/Text.hpp"

namespace zephyl {

namespace {

constexpr const char* portalName = "org.freedesktop.portal.Desktop";
constexpr const char* portalPath = "/org/freedesktop/portal/desktop";
constexpr BusAddress properties{portalName, portalPath, "org.freedesktop.DBus.Properties"};
constexpr BusAddress fileChooser{portalName, portalPath, "org.freedesktop.portal.FileChooser"};
constexpr std::uint32_t versionWithDirectories = 3;
constexpr std::uint32_t success = 0;

/// The first of the chosen files in a response's results.
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

}  // namespace

std::optional<std::string> pathOfFileURI(std::string_view uri) {
  constexpr std::string_view scheme = "file://";
  if (!uri.starts_with(scheme)) return std::nullopt;
  uri.remove_prefix(scheme.size());
  const auto start = uri.find('/');  // what stands before it is this machine's name
  if (start == std::string_view::npos) return std::nullopt;
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
  portalWatch_ = connection.watchOwner(portalName, [this](const std::string& owner) {
    const auto before = std::exchange(owner_, owner);
    if (!before.empty() && owner != before) finishAll("The folder chooser has gone away.");
  });
}

void FolderPortal::disconnected() {
  connection_ = nullptr;
  portalWatch_.clear();
  owner_.clear();
  finishAll("The session bus has gone away.");
}

void FolderPortal::choose(const FolderRequest& request, Done done) {
  if (connection_ == nullptr)
    return done(Error{"There is no session bus to choose a folder through."});
  const auto token = "zephyl_tray_" + std::to_string(++lastQuestion_);
  Question& question = questions_[token];
  question.request = request;
  question.done = std::move(done);
  const auto call = connection_->newCall(properties, "Get");
  BusWriter(call.get()).append("ss", fileChooser.interface, "version");
  question.call = connection_->call(call, [this, token](sd_bus_message& reply) {
    std::uint32_t version = 0;
    if (isError(reply))
      return finish(token, Error{"There is no folder chooser: ", errorText(reply)});
    if (sd_bus_message_read(&reply, "v", "u", &version) > 0 && version >= versionWithDirectories) {
      return ask(token);
    }
    finish(token, Error{"The desktop's file chooser cannot choose folders."});
  });
}

void FolderPortal::ask(const std::string& token) {
  Question& question = questions_.at(token);
  // Subscribed before the call: the response could come before the reply.
  awaitResponse(token, portalRequestPath(connection_->uniqueName(), token));
  const auto call = connection_->newCall(fileChooser, "OpenFile");
  BusWriter writer(call.get());
  writeQuestion(writer, question.request, token);
  question.call =
      connection_->call(call, [this, token](sd_bus_message& reply) { taken(token, reply); });
}

void FolderPortal::taken(const std::string& token, sd_bus_message& reply) {
  const auto found = questions_.find(token);
  if (found == questions_.end()) return;
  if (isError(reply)) {
    return finish(token, Error{"The folder chooser could not be shown: ", errorText(reply)});
  }
  found->second.call.reset();
  const char* handle = nullptr;
  if (sd_bus_message_read_basic(&reply, 'o', &handle) <= 0) return;
  if (portalRequestPath(connection_->uniqueName(), token) != handle) awaitResponse(token, handle);
}

void FolderPortal::awaitResponse(const std::string& token, const std::string& path) {
  questions_.at(token).response = connection_->subscribe(
      "type='signal',interface='org.freedesktop.portal.Request',member='Response',path='" + path +
          "'",
      [this, token](sd_bus_message& signal) { responded(token, signal); });
}

void FolderPortal::responded(const std::string& token, sd_bus_message& signal) {
  std::uint32_t response = 0;
  if (sd_bus_message_read(&signal, "u", &response) <= 0) return;
  if (response != success) return finish(token, std::optional<std::string>());
  const auto uri = firstURI(signal);
  auto path = uri ? pathOfFileURI(*uri) : std::nullopt;
  if (!path) return finish(token, Error{"The folder chooser named no folder on this machine."});
  finish(token, std::move(path));
}

void FolderPortal::finish(const std::string& token, Result<std::optional<std::string>> answer) {
  auto question = questions_.extract(token);
  if (!question.empty()) question.mapped().done(std::move(answer));
}

void FolderPortal::finishAll(const char* reason) {
  for (auto& [token, question] : std::exchange(questions_, {})) question.done(Error{reason});
}

}  // namespace zephyl

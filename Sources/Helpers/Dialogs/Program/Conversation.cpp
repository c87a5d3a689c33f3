#include "Helpers/Dialogs/Program/Conversation.hpp"

#include <array>
#include <cerrno>
#include <string_view>
#include <utility>

#include <unistd.h>

#include "System/Data/JSON.hpp"

namespace zephyl {

namespace {

Result<DialogRequest> understood(const std::string& line) {
  auto request = json::decodeText<DialogRequest>(line);
  if (!request) return request;
  const int count =
      (request->alert ? 1 : 0) + (request->folderPicker ? 1 : 0) + (request->logWindow ? 1 : 0);
  if (count != 1) return Error{"a request is for one window"};
  if (!request->alert) return request;
  const auto buttons = static_cast<std::int64_t>(request->alert->buttons.size());
  const auto safe = request->alert->safeButton;
  if (safe < 0 || safe >= buttons) return Error{"an alert has buttons, and one of them is safe"};
  return request;
}

}  // namespace

Conversation::Conversation() : notifier_(STDIN_FILENO, QSocketNotifier::Read) {
  notifier_.setEnabled(false);
}

Result<DialogRequest> Conversation::readRequest() {
  auto line = takeLine();
  while (!line && read()) line = takeLine();
  if (!line) return Error{"nothing to show"};
  return understood(*line);
}

void Conversation::follow(WindowOrders orders) {
  orders_ = std::move(orders);
  QObject::connect(&notifier_, &QSocketNotifier::activated, &notifier_, [this] { readOrders(); });
  notifier_.setEnabled(true);
  while (const auto line = takeLine()) obey(*line);
}

void Conversation::report(const DialogReport& report) {
  const std::string line = json::compact(json::encode(report)) + "\n";
  std::string_view rest = line;
  while (!rest.empty()) {
    const ssize_t written = ::write(STDOUT_FILENO, rest.data(), rest.size());
    if (written < 0 && errno != EINTR) return;
    if (written > 0) rest.remove_prefix(static_cast<std::size_t>(written));
  }
}

bool Conversation::read() {
  std::array<char, 65536> buffer;
  ssize_t count = 0;
  do {
    count = ::read(STDIN_FILENO, buffer.data(), buffer.size());
  } while (count < 0 && errno == EINTR);
  if (count <= 0) return false;
  received_.append(buffer.data(), static_cast<std::size_t>(count));
  return true;
}

std::optional<std::string> Conversation::takeLine() {
  const auto end = received_.find('\n');
  if (end == std::string::npos) return std::nullopt;
  std::string line = received_.substr(0, end);
  received_.erase(0, end + 1);
  return line;
}

void Conversation::obey(const std::string& line) {
  const auto order = json::decodeText<DialogOrder>(line);
  if (!order) return;
  if (order->ping) report({.pong = order->ping});
  if (order->progress) orders_.progress(*order->progress);
  if (order->bringToFront) orders_.bringToFront(*order->bringToFront);
  if (order->close) orders_.close();
}

void Conversation::readOrders() {
  const bool open = read();
  while (const auto line = takeLine()) obey(*line);
  if (open) return;
  notifier_.setEnabled(false);
  orders_.close();
}

}  // namespace zephyl

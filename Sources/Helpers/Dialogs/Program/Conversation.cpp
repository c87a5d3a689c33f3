#include "Helpers/Dialogs/Program/Conversation.hpp"

#include <utility>

#include <unistd.h>

#include "System/Data/Overloaded.hpp"

namespace zephyl {

Conversation::Conversation() : notifier_(STDIN_FILENO, QSocketNotifier::Read) {
  notifier_.setEnabled(false);
}

Result<DialogRequest> Conversation::readRequest() {
  auto request = lines_.await<DialogRequest>();
  const auto* const alert = request ? std::get_if<Alert>(&*request) : nullptr;
  if (alert != nullptr && alert->safeButton >= alert->buttons.size()) {
    return Error{"the safe button of an alert is not one of its buttons"};
  }
  return request;
}

void Conversation::follow(WindowOrders orders) {
  orders_ = std::move(orders);
  QObject::connect(&notifier_, &QSocketNotifier::activated, &notifier_, [this] {
    const bool open = lines_.receive();
    handleOrders();
    if (open) return;
    notifier_.setEnabled(false);
    orders_.close();
  });
  notifier_.setEnabled(true);
  handleOrders();
}

void Conversation::handleOrders() {
  while (const auto order = lines_.next<DialogOrder>()) {
    if (*order) handle(**order);
  }
}

void Conversation::handle(const DialogOrder& order) {
  std::visit(Overloaded{[&](const Ping& ping) { report(Pong{ping.value}); },
                        [&](const CloseDialog&) { orders_.close(); },
                        [&](const Progress& progress) { orders_.progress(progress); },
                        [&](const BringToFront& bring) { orders_.bringToFront(bring); }},
             order);
}

}  // namespace zephyl

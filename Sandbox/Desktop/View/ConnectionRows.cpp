#include "Desktop/View/ConnectionRows.hpp"

#include "Desktop/Client/ServerState.hpp"

namespace zephyl::sandbox::desktop {
namespace {

std::string orDash(const std::optional<std::string>& text) {
  return text.value_or("").empty() ? "—" : *text;
}

}  // namespace

void ConnectionRows::addTo(QFormLayout& form) {
  form_ = &form;
  form.addRow(QStringLiteral("Address"), &address_);
  form.addRow(QStringLiteral("Relay"), &relay_);
  form.addRow(QStringLiteral("Last error"), &problem_);
  form.addRow(QString(), &explanation_);
  problem_.setAlarming();
  explanation_.setSecondary();
}

void ConnectionRows::showServer(const ServerEntry& server) {
  address_.showText(orDash(server.webUrl ? server.webUrl : server.boundAddress));
  relay_.showText(orDash(server.relay));
  const auto problems = server.enabled ? problemsOf(server) : std::vector<Problem>();
  const bool hasProblem = !problems.empty();
  problem_.showText(hasProblem ? problems.front().reason : "");
  explanation_.showText(hasProblem ? std::string(problems.front().explanation) : "");
  form_->labelForField(&problem_)->setVisible(hasProblem);
}

}  // namespace zephyl::sandbox::desktop

#include "Desktop/View/ServerPage.hpp"

#include <QDesktopServices>
#include <QUrl>
#include <utility>

#include "Helpers/Dialogs/Program/PlainText.hpp"

namespace zephyl::sandbox::desktop {
namespace {

constexpr int pageMargin = 16;
constexpr int pageSpacing = 12;

QUrl webAddressOf(const ServerEntry& server) {
  const QUrl url(QString::fromStdString(server.webUrl.value_or("")), QUrl::StrictMode);
  return url.scheme() == "http" || url.scheme() == "https" ? url : QUrl();
}

}  // namespace

ServerPage::ServerPage(WindowModel& model) : model_(model) {
  layout_.setContentsMargins(pageMargin, pageMargin, pageMargin, pageMargin);
  layout_.setSpacing(pageSpacing);
  addProperties();
  addButtons();
  failure_.setAlarming();
  failure_.hide();
  layout_.addWidget(&failure_);
  addFolders();
}

void ServerPage::addProperties() {
  name_.setPlaceholderText(QStringLiteral("The server's own name"));
  name_.onCommit = [this](const std::string& name) { rename(name); };
  color_.onChosen = [this](const std::string& color) {
    model_.setAccent(server_.id, color, reportFailure());
  };
  outline(enabled_);
  connect(&enabled_, &QCheckBox::clicked, this,
          [this](bool enabled) { model_.setEnabled(server_.id, enabled, reportFailure()); });
  form_.addRow(QStringLiteral("&Name"), &name_);
  form_.addRow(QStringLiteral("Co&lor"), &color_);
  form_.addRow(QString(), &enabled_);
  connection_.addTo(form_);
  form_.setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
  layout_.addLayout(&form_);
}

void ServerPage::addButtons() {
  connect(&browser_, &QPushButton::clicked, this, [this] { openInBrowser(); });
  connect(&remove_, &QPushButton::clicked, this, [this] { confirmRemoval(); });
  buttons_.addWidget(&browser_);
  buttons_.addStretch();
  buttons_.addWidget(&remove_);
  layout_.addLayout(&buttons_);
}

void ServerPage::addFolders() {
  folders_.onShared = [this](const std::string& root, bool shared) {
    model_.setFolderShared(server_.id, root, shared, reportFailure());
  };
  folders_.onShare = [this] {
    folders_.setChoosing(true);
    model_.shareFolder(server_.id, [this, report = reportFailure()](const auto& failure) {
      folders_.setChoosing(false);
      report(failure);
    });
  };
  layout_.addWidget(&folders_, 1);
}

void ServerPage::showServer(const ServerEntry& server) {
  if (server.id != server_.id) {
    name_.commit();
    failure_.showText("");
    server_ = server;
    name_.replaceValue(server.name);
  }
  server_ = server;
  name_.showValue(server.name);
  color_.showColor(server.accent);
  connection_.showServer(server);
  browser_.setEnabled(webAddressOf(server).isValid());
  showBoxes(server);
}

void ServerPage::showBoxes(const ServerEntry& server) {
  enabled_.setChecked(server.enabled);
  folders_.showFolders(model_.folders(), server.id);
}

void ServerPage::editName() {
  name_.setFocus(Qt::OtherFocusReason);
  name_.selectAll();
}

void ServerPage::rename(const std::string& name) {
  const auto report = reportFailure();
  model_.rename(server_.id, name, [this, report, before = server_](const auto& failure) {
    if (failure && before.id == server_.id) name_.rejectCommit(before.name);
    report(failure);
  });
}

WindowModel::Done ServerPage::reportFailure() {
  failure_.showText("");
  return [this, id = server_.id](const std::optional<std::string>& failure) {
    if (id != server_.id || !failure) return;
    failure_.showText(*failure);
    showBoxes(server_);
  };
}

void ServerPage::confirmRemoval() {
  question_ = std::make_unique<QMessageBox>(this);
  question_->setWindowTitle(QStringLiteral("Zephyl"));
  question_->setIcon(QMessageBox::Question);
  question_->setTextFormat(Qt::PlainText);
  question_->setText(QStringLiteral("Remove “%1”?").arg(plainText(server_.name)));
  question_->setInformativeText(
      QStringLiteral("Its private network ends, and folders are no longer shared with it. Joining "
                     "it again needs a new invite key."));
  const auto* const remove =
      question_->addButton(QStringLiteral("Remove"), QMessageBox::DestructiveRole);
  question_->setDefaultButton(question_->addButton(QMessageBox::Cancel));
  connect(question_.get(), &QMessageBox::buttonClicked, this,
          [this, remove, id = server_.id](const QAbstractButton* pressed) {
            if (pressed == remove) model_.remove(id, reportFailure());
          });
  question_->open();
}

void ServerPage::openInBrowser() const {
  QDesktopServices::openUrl(webAddressOf(server_));
}

}  // namespace zephyl::sandbox::desktop

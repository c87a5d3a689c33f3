#include "Desktop/View/JoinPage.hpp"

namespace zephyl::sandbox::desktop {
namespace {

constexpr int joinMargin = 32;
constexpr int joinSpacing = 12;
constexpr double titleScale = 1.5;
constexpr int maxKeyCharacters = 4096;

}  // namespace

JoinPage::JoinPage(WindowModel& model) : model_(model) {
  layout_.setContentsMargins(joinMargin, joinMargin, joinMargin, joinMargin);
  layout_.setSpacing(joinSpacing);
  auto font = title_.font();
  font.setPointSizeF(font.pointSizeF() * titleScale);
  font.setBold(true);
  title_.setFont(font);
  layout_.addWidget(&title_);
  layout_.addWidget(&introduction_);
  introduction_.showText(
      "Paste the invite key that you were sent. It looks like inv_v2_<fingerprint>_<key>. A key "
      "can "
      "be used once and expires after 24 hours.");
  addField();
  addProgress();
  layout_.addStretch();
}

void JoinPage::addField() {
  key_.setAccessibleName(QStringLiteral("Invite key"));
  key_.setPlaceholderText(QStringLiteral("inv_v2_…"));
  key_.setMaxLength(maxKeyCharacters);
  connect(&key_, &QLineEdit::returnPressed, this, [this] { join(); });
  connect(&key_, &QLineEdit::textChanged, this, [this] { showProgress(); });
  connect(&join_, &QPushButton::clicked, this, [this] { join(); });
  row_.addWidget(&key_, 1);
  row_.addWidget(&join_);
  layout_.addLayout(&row_);
  error_.setAlarming();
  layout_.addWidget(&error_);
}

void JoinPage::addProgress() {
  bar_.setAccessibleName(QStringLiteral("Joining"));
  bar_.setRange(0, 0);
  bar_.setTextVisible(false);
  layout_.addWidget(&bar_);
  layout_.addWidget(&progress_);
}

void JoinPage::join() {
  if (join_.isEnabled()) model_.join(key_.text().toStdString());
}

std::string JoinPage::errorText() const {
  if (!model_.joining().error().empty()) return model_.joining().error();
  if (model_.canJoin()) return {};
  return "Servers cannot be joined, because the programs of the private network, tailscaled and "
         "zephyl-tailnet, are not installed.";
}

void JoinPage::showProgress() {
  const auto& joining = model_.joining();
  const bool isUnderWay = joining.isUnderWay();
  // The key has been used.
  if (wasUnderWay_ && !isUnderWay && joining.error().empty()) key_.clear();
  wasUnderWay_ = isUnderWay;
  key_.setReadOnly(isUnderWay);
  join_.setEnabled(!isUnderWay && model_.canJoin() && !key_.text().trimmed().isEmpty());
  error_.showText(errorText());
  progress_.showText(joining.progress());
  bar_.setVisible(isUnderWay);
}

void JoinPage::editKey() {
  key_.setFocus(Qt::OtherFocusReason);
  key_.selectAll();
}

}  // namespace zephyl::sandbox::desktop

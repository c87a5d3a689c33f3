#pragma once

#include <QFormLayout>

#include "Desktop/Client/Records.hpp"
#include "Desktop/View/Parts.hpp"

namespace zephyl::sandbox::desktop {

/// The rows of a form with a server's address and the problems of its connection.
class ConnectionRows final {
 public:
  /// Must be called once. The form must outlive the rows.
  void addTo(QFormLayout& form);
  void showServer(const ServerEntry& server);

 private:
  QFormLayout* form_ = nullptr;
  TextLabel address_;
  TextLabel relay_;
  TextLabel problem_;
  TextLabel explanation_;
};

}  // namespace zephyl::sandbox::desktop

#include "Desktop/Freedesktop/Bus/WatchedName.hpp"

#include <utility>

namespace zephyl {

void WatchedName::watch(const BusConnection& connection, OwnerHandler changed) {
  slots_ =
      connection.watchOwner(name_, [this, changed = std::move(changed)](const std::string& owner) {
        owner_ = owner;
        if (changed) changed(owner);
      });
}

void WatchedName::forget() {
  slots_.clear();
  owner_.clear();
}

bool WatchedName::sent(sd_bus_message& message) const {
  return !owner_.empty() && senderOf(message) == owner_;
}

BusSlot WatchedName::subscribe(const BusConnection& connection, const std::string& rule,
                               BusConnection::Handler onSignal) const {
  return connection.subscribe("type='signal',sender='" + name_ + "'," + rule,
                              [this, onSignal = std::move(onSignal)](sd_bus_message& signal) {
                                if (sent(signal)) onSignal(signal);
                              });
}

}  // namespace zephyl

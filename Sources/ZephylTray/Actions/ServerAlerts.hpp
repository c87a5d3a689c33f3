#pragma once

#include <cstddef>
#include <string>

#include "Desktop/Dialogs.hpp"

/// The alerts about servers, as values, with the meaning of their buttons.
namespace zephyl::alerts {

/// Returns the prompt for an invite key.
Alert inviteKey();
enum class InviteKeyButton : std::size_t { join, cancel };

/// Returns the alert that an invite key could not be redeemed.
Alert inviteKeyFailed(const std::string& message);

/// Returns the alert that a server could not be connected.
Alert connectFailed(const std::string& message);

}  // namespace zephyl::alerts

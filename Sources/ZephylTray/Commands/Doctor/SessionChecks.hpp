#pragma once

#include "Desktop/Freedesktop/Bus/SessionServices.hpp"
#include "ZephylTray/Commands/Doctor/Finding.hpp"

namespace zephyl {

/// Returns the findings about the session. Nothing is wrong if there is no display. Pure.
Findings checkSession(const SessionServices& session, bool hasDisplay);

}  // namespace zephyl

#pragma once

#include <boost/asio/awaitable.hpp>

#include "Tailnet/Client/Enrolment.hpp"
#include "Tailnet/Client/Settings.hpp"

namespace zephyl::sandbox {

/// Joins the tailnet through the daemon and then serves the agent's shim and the data tunnel until
/// the executor stops. Logs each step with the markers that the tray recognizes. The caller logs an
/// error as the last such line. Overwrites the key after the enrolment. Settings and key must
/// outlive the coroutine.
boost::asio::awaitable<Result<void>> bringUp(const Settings& settings, PreauthKey& key);

}  // namespace zephyl::sandbox

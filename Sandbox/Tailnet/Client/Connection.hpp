#pragma once

#include <boost/asio/awaitable.hpp>

#include "Common/Result.hpp"
#include "Tailnet/Client/PreauthKey.hpp"
#include "Tailnet/Client/Settings.hpp"

namespace zephyl::sandbox {

/// Joins the tailnet through the daemon and then serves the agent's shim and the data tunnel, for
/// as long as the executor runs. Each step is told in the log, in the words that the tray looks
/// for; a failure is the last such line. The key is forgotten once it has been decided upon.
/// Settings and key must outlive the coroutine.
boost::asio::awaitable<Result<void>> bringUp(const Settings& settings, PreauthKey& key);

}  // namespace zephyl::sandbox

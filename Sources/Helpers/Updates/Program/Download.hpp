#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "System/Data/Result.hpp"

namespace zephyl {

/// The limits of a transfer.
struct TransferLimits {
  std::int64_t bytes = 0;
  std::chrono::seconds total{};
  std::chrono::seconds stall{30};  ///< maximum time without a byte
};

/// The owner of a transfer.
struct TransferCallbacks {
  /// Receives the bytes. An error ends the transfer with that error.
  std::function<Result<void>(std::string_view)> receive;
  /// Called at least once a second. Returning true ends the transfer.
  std::function<bool()> isCancelled;
};

/// Fetches the document at `url` over https, or over http from this machine. The same rule applies
/// to each redirect. Accepts no cookies, no compression and no status but 200. Blocks.
Result<void> fetch(const std::string& url, const TransferLimits& limits,
                   const TransferCallbacks& owner);

}  // namespace zephyl

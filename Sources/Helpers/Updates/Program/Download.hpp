#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "System/Data/Result.hpp"

namespace zephyl {

/// What a transfer may cost at most.
struct TransferLimits {
  std::int64_t bytes = 0;
  std::chrono::seconds total{};
  std::chrono::seconds stall{30};  ///< without a byte
};

/// What becomes of the bytes, and whether they are still wanted.
struct TransferCallbacks {
  /// Takes bytes as they come; an error ends the transfer with it.
  std::function<Result<void>(std::string_view)> take;
  /// Asked at least once a second; true ends the transfer.
  std::function<bool()> isCancelled;
};

/// Fetches what is at `url`: over https, or plain http from this machine itself, and the same for
/// each address that it is sent on to. Nothing that is not asked for is accepted: no cookies, no
/// compression, no other answer than 200. Blocks.
Result<void> fetch(const std::string& url, const TransferLimits& limits,
                   const TransferCallbacks& owner);

}  // namespace zephyl

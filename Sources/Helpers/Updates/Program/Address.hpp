#pragma once

#include <string>

#include "System/Data/Result.hpp"

/// Rules for the addresses of updates. Pure.
namespace zephyl {

/// Fails unless updates may be fetched from `url`: over https, or from this machine.
Result<void> checkAddress(const std::string& url);
/// Fails unless the address `from` may redirect to `to`. Redirects from https to http are refused.
Result<void> checkRedirect(const std::string& from, const std::string& to);

/// Returns whether the scheme of `url` is https.
bool isEncrypted(const std::string& url);

}  // namespace zephyl

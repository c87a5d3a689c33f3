#pragma once

#include <string>

#include "System/Data/Result.hpp"

/// From where updates may come. Pure.
namespace zephyl {

/// Whether an update may be fetched from `url`: over https, or from this machine itself.
Result<void> checkAddress(const std::string& url);
/// Whether an answer at `from` may send on to `to`: never from https to anything less.
Result<void> checkRedirect(const std::string& from, const std::string& to);

/// Whether the scheme of `url` is https.
bool isEncrypted(const std::string& url);

}  // namespace zephyl

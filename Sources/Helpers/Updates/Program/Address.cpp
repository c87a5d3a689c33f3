#include "Helpers/Updates/Program/Address.hpp"

#include "System/Data/Text.hpp"
#include "System/Data/URL.hpp"

namespace zephyl {

namespace {

bool isLoopback(const std::string& host) {
  return host == "127.0.0.1" || host == "[::1]" || host == "localhost";
}

std::string schemeOf(const URL& url) {
  return lowerCased(url.scheme);
}

}  // namespace

Result<void> checkAddress(const std::string& url) {
  const auto parsed = URL::parse(url);
  if (!parsed || parsed->host.empty()) return Error{"\"", visible(url), "\" is not an address."};
  const std::string scheme = schemeOf(*parsed);
  if (scheme == "https" || (scheme == "http" && isLoopback(parsed->host))) return {};
  return Error{"Updates are fetched only over https, not from ", visible(url), "."};
}

Result<void> checkRedirect(const std::string& from, const std::string& to) {
  if (auto allowed = checkAddress(to); !allowed) return allowed;
  if (isEncrypted(from) && !isEncrypted(to)) {
    return Error{"The server redirects from https to plain http."};
  }
  return {};
}

bool isEncrypted(const std::string& url) {
  const auto parsed = URL::parse(url);
  return parsed && schemeOf(*parsed) == "https";
}

}  // namespace zephyl

#include "Helpers/Updates/Program/Download.hpp"

#include <memory>
#include <optional>

#include <curl/curl.h>

#include "Helpers/Updates/Program/Address.hpp"
#include "System/Data/Format.hpp"

namespace zephyl {

namespace {

using Handle = std::unique_ptr<CURL, decltype(&curl_easy_cleanup)>;

constexpr long connectSeconds = 15;
constexpr int maxRedirects = 5;
constexpr long statusOK = 200;
constexpr const char* userAgent = "zephyl-tray-updater";

/// One request and its answer.
struct Transfer {
  const TransferLimits& limits;
  const TransferCallbacks& owner;
  CURL* handle = nullptr;
  std::int64_t received = 0;
  std::chrono::steady_clock::time_point lastBytes = std::chrono::steady_clock::now();
  std::optional<Error> failure;

  std::size_t receive(std::string_view bytes) {
    long status = 0;
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
    if (status != statusOK) return bytes.size();  // the body of an error page is ignored
    lastBytes = std::chrono::steady_clock::now();
    received += static_cast<std::int64_t>(bytes.size());
    if (received > limits.bytes) {
      failure = Error{"The server sent more than expected."};
      return 0;
    }
    if (auto accepted = owner.receive(bytes); !accepted) {
      failure = accepted.error();
      return 0;
    }
    return bytes.size();
  }

  /// The library's own limit for low speed uses an average, which reacts seconds late.
  bool mayContinue() {
    if (owner.isCancelled()) return false;
    if (std::chrono::steady_clock::now() - lastBytes < limits.stall) return true;
    failure = Error{"The server took too long."};
    return false;
  }
};

std::size_t onBytes(const char* bytes, std::size_t, std::size_t count, void* transfer) {
  return static_cast<Transfer*>(transfer)->receive({bytes, count});
}

int onProgress(void* transfer, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
  return static_cast<Transfer*>(transfer)->mayContinue() ? 0 : 1;
}

// curl_easy_setopt takes any number of arguments of any type.
// NOLINTBEGIN(cppcoreguidelines-pro-type-vararg)
void prepare(CURL* handle, const std::string& url, Transfer& transfer) {
  const bool encrypted = isEncrypted(url);
  curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
  curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, encrypted ? "https" : "http");
  // A proxy from the environment must not be used for this machine.
  if (!encrypted) curl_easy_setopt(handle, CURLOPT_PROXY, "");
  curl_easy_setopt(handle, CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  curl_easy_setopt(handle, CURLOPT_USERAGENT, userAgent);
  curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT, connectSeconds);
  curl_easy_setopt(handle, CURLOPT_TIMEOUT, static_cast<long>(transfer.limits.total.count()));
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &onBytes);
  curl_easy_setopt(handle, CURLOPT_WRITEDATA, &transfer);
  curl_easy_setopt(handle, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(handle, CURLOPT_XFERINFOFUNCTION, &onProgress);
  curl_easy_setopt(handle, CURLOPT_XFERINFODATA, &transfer);
}
// NOLINTEND(cppcoreguidelines-pro-type-vararg)

Error describe(CURLcode code, const Transfer& transfer) {
  if (transfer.failure) return *transfer.failure;
  if (code == CURLE_ABORTED_BY_CALLBACK) return Error{"Cancelled."};
  if (code == CURLE_OPERATION_TIMEDOUT) return Error{"The server took too long."};
  return Error{"The server cannot be reached: ", curl_easy_strerror(code), "."};
}

/// Returns the address of a redirect, or nullopt if the document was received.
Result<std::optional<std::string>> fetchOnce(const std::string& url, Transfer transfer) {
  const Handle handle(curl_easy_init(), curl_easy_cleanup);
  if (!handle) return Error{"The server cannot be reached."};
  transfer.handle = handle.get();
  prepare(handle.get(), url, transfer);
  if (const CURLcode code = curl_easy_perform(handle.get()); code != CURLE_OK) {
    return describe(code, transfer);
  }
  long status = 0;
  const char* next = nullptr;
  curl_easy_getinfo(handle.get(), CURLINFO_RESPONSE_CODE, &status);
  curl_easy_getinfo(handle.get(), CURLINFO_REDIRECT_URL, &next);
  if (next != nullptr) return std::optional<std::string>(next);
  if (status != statusOK) return Error{formatText("The server answered with status {}.", status)};
  return std::optional<std::string>();
}

}  // namespace

Result<void> fetch(const std::string& url, const TransferLimits& limits,
                   const TransferCallbacks& owner) {
  std::string address = url;
  if (auto allowed = checkAddress(address); !allowed) return allowed;
  for (int redirect = 0; redirect <= maxRedirects; ++redirect) {
    auto next = fetchOnce(address, Transfer{.limits = limits, .owner = owner});
    if (!next) return next.error();
    if (!*next) return {};
    if (auto allowed = checkRedirect(address, **next); !allowed) return allowed;
    address = std::move(**next);
  }
  return Error{"The server redirects too often."};
}

}  // namespace zephyl

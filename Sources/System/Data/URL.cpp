#include "System/Data/URL.hpp"

#include <boost/url/parse.hpp>

namespace zephyl {

std::optional<URL> URL::parse(std::string_view text) {
  const auto view = boost::urls::parse_uri_reference({text.data(), text.size()});
  if (!view) return std::nullopt;
  // The library parses text after a host or a port as a path, even without a slash.
  if (view->has_authority() && !view->encoded_path().empty() && !view->is_path_absolute())
    return std::nullopt;
  URL url{.scheme = view->scheme(),
          .host = std::string(view->encoded_host()),
          .path = std::string(view->encoded_path())};
  if (!view->port().empty()) url.port = view->port();
  return url;
}

std::string URL::authority() const {
  return port ? host + ":" + *port : host;
}

}  // namespace zephyl

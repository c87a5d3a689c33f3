#include "System/Network/HTTPDestination.hpp"

#include <charconv>

#include <boost/url/parse.hpp>

#include "System/Data/URL.hpp"

namespace zephyl {

std::optional<HTTPDestination> HTTPDestination::parse(std::string_view url) {
  const auto view = boost::urls::parse_uri({url.data(), url.size()});
  if (!view || !URL::parse(url) || view->scheme_id() != boost::urls::scheme::http)
    return std::nullopt;
  HTTPDestination destination{.host = view->host_address(),
                              .authority = std::string(view->encoded_host_and_port()),
                              .target = std::string(view->encoded_target())};
  if (destination.host.empty()) return std::nullopt;
  if (!destination.target.starts_with('/')) destination.target.insert(0, 1, '/');
  // The library's own port number wraps around for some values that are out of range.
  const std::string_view port = view->port();
  const auto parsed = std::from_chars(port.begin(), port.end(), destination.port);
  if (!port.empty() && parsed.ec != std::errc()) return std::nullopt;
  return destination;
}

std::string HTTPDestination::wireForm(const ClientRequest& request, bool keepsOpen) const {
  std::string text = request.method + " " + target + " HTTP/1.1\r\n";
  text += "Host: " + authority + "\r\nAccept: */*\r\n";
  if (!keepsOpen) text += "Connection: close\r\n";
  if (request.contentType) text += "Content-Type: " + *request.contentType + "\r\n";
  if (request.method != "GET" || !request.body.empty())
    text += "Content-Length: " + std::to_string(request.body.size()) + "\r\n";
  return text + "\r\n" + request.body;
}

}  // namespace zephyl

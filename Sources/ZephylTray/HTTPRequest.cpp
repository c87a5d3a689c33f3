#include "ZephylTray/HTTPRequest.hpp"

#include <algorithm>
#include <utility>

#include "System/Text.hpp"

namespace zephyl {

namespace {

constexpr std::string_view lineEnd = "\r\n";
constexpr std::string_view headEnd = "\r\n\r\n";

/// Takes the first line off `text`.
std::string_view takeLine(std::string_view& text) {
  const auto end = text.find(lineEnd);
  const auto line = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + lineEnd.size());
  return line;
}

bool takeRequestLine(std::string_view line, HTTPRequest& request) {
  const auto pieces = splitNonEmpty(line, ' ');
  if (pieces.size() < 2) return false;
  request.method = upperCased(pieces[0]);
  request.path = pieces[1].substr(0, pieces[1].find('?'));
  return true;
}

void takeHeader(std::string_view line, HTTPRequest& request) {
  const auto colon = line.find(':');
  if (colon == std::string_view::npos) return;
  request.headers.insert_or_assign(lowerCased(trimmed(line.substr(0, colon))),
                                   std::string(trimmed(line.substr(colon + 1))));
}

std::size_t contentLength(const HTTPRequest& request) {
  const auto length = parseDecimal(request.header("content-length").value_or(""));
  return static_cast<std::size_t>(std::max(length.value_or(0), 0LL));
}

}  // namespace

std::optional<HTTPRequest> HTTPRequest::parse(std::string_view bytes) {
  const auto end = bytes.find(headEnd);
  if (end == std::string_view::npos) return std::nullopt;
  auto head = bytes.substr(0, end);
  if (!isValidUTF8(head)) return std::nullopt;

  HTTPRequest request;
  if (!takeRequestLine(takeLine(head), request)) return std::nullopt;
  while (!head.empty()) takeHeader(takeLine(head), request);

  const auto rest = bytes.substr(end + headEnd.size());
  const auto length = contentLength(request);
  if (rest.size() < length) return std::nullopt;
  request.body = rest.substr(0, length);
  return request;
}

std::optional<std::string> HTTPRequest::header(const std::string& name) const {
  const auto found = headers.find(name);
  if (found == headers.end()) return std::nullopt;
  return found->second;
}

}  // namespace zephyl

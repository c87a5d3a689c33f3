#include "ZephylTray/Control/HTTPRequest.hpp"

#include <algorithm>
#include <utility>

#include "System/Data/Text.hpp"

namespace zephyl {

namespace {

constexpr std::string_view lineEnd = "\r\n";
constexpr std::string_view headEnd = "\r\n\r\n";

/// Removes the first line from `text` and returns it without its end.
std::string_view removeLine(std::string_view& text) {
  const auto end = text.find(lineEnd);
  const auto line = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + lineEnd.size());
  return line;
}

bool parseRequestLine(std::string_view line, HTTPRequest& request) {
  const auto pieces = splitNonEmpty(line, ' ');
  if (pieces.size() < 2) return false;
  request.method = upperCased(pieces[0]);
  request.path = pieces[1].substr(0, pieces[1].find('?'));
  return true;
}

void parseHeader(std::string_view line, HTTPRequest& request) {
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

HTTPRequestParser::Stage HTTPRequestParser::advance(std::string_view received) {
  if (stage_ == Stage::head) stage_ = parseHead(received);
  if (stage_ != Stage::body || received.size() - bodyStart_ < bodyBytes_) return stage_;
  request_.body = received.substr(bodyStart_, bodyBytes_);
  stage_ = Stage::whole;
  return stage_;
}

HTTPRequestParser::Stage HTTPRequestParser::parseHead(std::string_view received) {
  const auto end = received.find(headEnd, searched_);
  if (end == std::string_view::npos) {
    searched_ = received.size() - std::min(received.size(), headEnd.size() - 1);
    return Stage::head;
  }
  auto head = received.substr(0, end);
  if (!isValidUTF8(head) || !parseRequestLine(removeLine(head), request_)) return Stage::invalid;
  while (!head.empty()) parseHeader(removeLine(head), request_);
  bodyStart_ = end + headEnd.size();
  bodyBytes_ = contentLength(request_);
  return Stage::body;
}

std::optional<HTTPRequest> HTTPRequest::parse(std::string_view bytes) {
  HTTPRequestParser parser;
  if (parser.advance(bytes) != HTTPRequestParser::Stage::whole) return std::nullopt;
  return std::move(parser).request();
}

std::optional<std::string> HTTPRequest::header(const std::string& name) const {
  const auto found = headers.find(name);
  if (found == headers.end()) return std::nullopt;
  return found->second;
}

}  // namespace zephyl

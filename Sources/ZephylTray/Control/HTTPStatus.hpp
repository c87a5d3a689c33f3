#pragma once

#include <string_view>

namespace zephyl {

/// The statuses of the control API's answers.
enum class HTTPStatus {
  ok = 200,
  badRequest = 400,
  forbidden = 403,
  notFound = 404,
  payloadTooLarge = 413,
  badGateway = 502,
};

/// Returns code and reason phrase for the status line, such as "404 Not Found".
constexpr std::string_view statusText(HTTPStatus status) {
  switch (status) {
    case HTTPStatus::ok:
      return "200 OK";
    case HTTPStatus::badRequest:
      return "400 Bad Request";
    case HTTPStatus::forbidden:
      return "403 Forbidden";
    case HTTPStatus::notFound:
      return "404 Not Found";
    case HTTPStatus::payloadTooLarge:
      return "413 Payload Too Large";
    case HTTPStatus::badGateway:
      return "502 Bad Gateway";
  }
  return "500 Internal Server Error";
}

}  // namespace zephyl

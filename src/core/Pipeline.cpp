#include <velora/core/detail/Pipeline.hpp>

namespace velora::detail {

std::string reasonPhrase(int status) {
  switch (status) {
    case 100: return "continue";
    case 101: return "switching protocols";
    case 200: return "no error";
    case 201: return "created";
    case 202: return "accepted";
    case 203: return "non-authoritative information";
    case 204: return "no content";
    case 205: return "reset content";
    case 206: return "partial content";
    case 300: return "multiple choices";
    case 301: return "moved permanently";
    case 302: return "found";
    case 303: return "see other";
    case 304: return "not modified";
    case 305: return "use proxy";
    case 307: return "temporarily redirected";
    case 308: return "permanent redirect";
    case 400: return "bad request";
    case 401: return "unauthorized";
    case 402: return "payment required";
    case 403: return "forbidden";
    case 404: return "not found";
    case 405: return "method not allowed";
    case 406: return "unacceptable";
    case 407: return "proxy authentication required";
    case 408: return "request timed out";
    case 409: return "conflict";
    case 410: return "no longer exists";
    case 411: return "length required";
    case 412: return "precondition failed";
    case 413: return "request too large";
    case 414: return "requested URL too long";
    case 415: return "unsupported media type";
    case 416: return "requested range not satisfiable";
    case 417: return "expectation failed";
    case 422: return "unprocessable entity";
    case 429: return "too many requests";
    case 500: return "internal server error";
    case 501: return "unimplemented";
    case 502: return "bad gateway";
    case 503: return "service unavailable";
    case 504: return "gateway timed out";
    case 505: return "unsupported version";
    default: break;
  }
  if (status >= 100 && status < 200) return "informational";
  if (status >= 200 && status < 300) return "success";
  if (status >= 300 && status < 400) return "redirected";
  if (status >= 400 && status < 500) return "client error";
  return "server error";
}

namespace {
std::optional<ResponseMessage> bodyMessage(const std::string& body) {
  try {
    return decodeJSON<ResponseMessage>(body);
  } catch (const JsonError&) {
    return std::nullopt;
  }
}
}  // namespace

ResponseMessage statusMessage(const HttpResponse& response) {
  if (auto message = bodyMessage(response.body)) return *message;
  return ResponseMessage(response.head.status, reasonPhrase(response.head.status));
}

APIError statusError(const HttpResponse& response) {
  if (auto message = bodyMessage(response.body)) return APIError(*message);
  return APIError::responseUnsuccessful("Invalid status code", response.head.status);
}

AnyCodable dataPayload(std::string_view body) {
  return AnyCodable::object({{"data", Bytes(body.begin(), body.end())}});
}

}  // namespace velora::detail

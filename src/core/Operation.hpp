#pragma once
// A REST operation is declared once, in its area's Orvane+<Area>.cpp, as a record of its
// arguments (the facade's argument labels) plus what it sends and what it gets back:
//
//   struct GetControllableItems {
//     std::optional<ItemControllableFilter> filter;
//     static constexpr OperationInfo info{"getControllableItems", "POST", "/api/v1/item/list"};
//     using Reply = std::vector<ItemControllable>;
//     ItemControllableRequest body(const Orvane&) const { return {filter}; }
//     static void afterDecode(Reply& items, Orvane& facade) { bindControls(items, facade.weak_from_this()); }
//     VELORA_FIELDS(GetControllableItems, filter);
//   };
//   VELORA_REGISTER_OPERATION(GetControllableItems);
//
// and the facade's two forms are one line each: `return call(GetControllableItems{filter});` and
// `call(GetControllableItems{filter}, std::move(callback));`. Optional members, when present:
//
//   std::string path() const                 the path and query built from the arguments
//   T body(const Orvane&) const              the JSON body (a record); may throw APIError to refuse
//   void finishRequest(HttpRequest&) &&      a last step on the request (a multipart body); may move
//                                            the arguments into it, as the operation is spent by then
//   Target target(const Orvane&) const       a whole URL and access other than the pipeline's
//   static void afterDecode(Reply&, Orvane&) a step after decoding, in both forms; may throw APIError
//   static Reply decodeResponse(const HttpResponse&)  replaces the 200 rule (throws APIError)
//   static std::string successMessage(const std::string& url)  replaces "<Reply> completed successfully"
//   static constexpr std::string_view diagnosticName   failures are printed as "<name> - <message>"

#include <stdexcept>
#include <tuple>
#include <utility>

#include <velora/core/OperationRegistry.hpp>
#include <velora/core/Orvane.hpp>
#include <velora/core/Record.hpp>
#include <velora/core/URL.hpp>

#include "core/Resume.hpp"

namespace velora {

struct OperationInfo {
  std::string_view name;
  std::string_view method;
  /// The path, or for operations with a path() its template with arguments as {name}.
  std::string_view path;
};

/// Where an operation goes when it does not simply append its path to the endpoint.
struct Target {
  std::string url;
  RequestAccess access = RequestAccess::pipeline;
};

namespace detail {

void registerOperation(OperationEntry entry);

template <class Op>
concept HasBody = requires(const Op& op, const Orvane& facade) { op.body(facade); };
template <class Op>
concept HasFinishRequest = requires(Op&& op, HttpRequest& request) { std::move(op).finishRequest(request); };
template <class Op>
concept HasPath = requires(const Op& op) { { op.path() } -> std::convertible_to<std::string>; };
template <class Op>
concept HasTarget = requires(const Op& op, const Orvane& facade) { { op.target(facade) } -> std::same_as<Target>; };
template <class Op>
concept HasAfterDecode = requires(typename Op::Reply& reply, Orvane& facade) { Op::afterDecode(reply, facade); };
template <class Op>
concept HasDecodeResponse = requires(const HttpResponse& response) { { Op::decodeResponse(response) } -> std::same_as<typename Op::Reply>; };
template <class Op>
concept HasSuccessMessage = requires(const std::string& url) { { Op::successMessage(url) } -> std::convertible_to<std::string>; };
template <class Op>
concept HasDiagnosticName = requires { Op::diagnosticName; };

template <class Op>
std::pair<HttpRequest, RequestAccess> prepareRequest(const Op& op, const Orvane& facade) {
  std::optional<std::string> body;
  if constexpr (HasBody<Op>) body = encodeJSON(op.body(facade));
  if constexpr (HasTarget<Op>) {
    Target target = op.target(facade);
    if (target.access == RequestAccess::pipeline) {
      if (auto request = facade.makeRequest(target.url, std::string(Op::info.method), std::move(body))) {
        return {std::move(*request), target.access};
      }
      throw APIError::invalidData();
    }
    // Whole URLs outside the pipeline: the platform's defaults, no body.
    HttpRequest request;
    request.method = std::string(Op::info.method);
    request.url = std::move(target.url);
    request.timeout = std::chrono::seconds(60);
    return {std::move(request), target.access};
  } else {
    std::string path;
    if constexpr (HasPath<Op>) {
      path = op.path();
    } else {
      path = std::string(Op::info.path);
    }
    auto request = facade.makeRequest(path, std::string(Op::info.method), std::move(body));
    if (!request) throw APIError::invalidData();
    return {std::move(*request), RequestAccess::pipeline};
  }
}

/// The request an operation sends; APIError when it refuses before sending.
template <class Op>
std::pair<HttpRequest, RequestAccess> prepare(Op op, const Orvane& facade) {
  auto prepared = prepareRequest(op, facade);
  if constexpr (HasFinishRequest<Op>) std::move(op).finishRequest(prepared.first);
  return prepared;
}

template <class Op>
std::string successText(const std::string& url) {
  if constexpr (HasSuccessMessage<Op>) {
    return Op::successMessage(url);
  } else {
    return typeName<typename Op::Reply>() + " completed successfully";
  }
}

template <class Op>
void printFailure(const Orvane& facade, const ResponseMessage& message) {
  if constexpr (HasDiagnosticName<Op>) {
    facade.platform().print(std::string(Op::diagnosticName) + " - " + message.message.value_or("Unknown error occurred"));
  }
}

}  // namespace detail

/// The pieces of the facade the operation templates and the registry use.
struct detail::FacadeAccess {
  template <class Op>
  static ResponseMessage callbackResult(Orvane& facade, const HttpResponse& response, const std::string& url) {
    using Reply = typename Op::Reply;
    try {
      // Some replies (component unions) have no empty state, so the value is made when decoded.
      std::optional<Reply> value;
      if constexpr (HasDecodeResponse<Op>) {
        value = Op::decodeResponse(response);
      } else {
        if (response.head.status != 200) return Orvane::statusMessage(response);
        if constexpr (std::same_as<Reply, Bytes>) {
          return ResponseMessage(200, std::nullopt, std::nullopt, std::nullopt, Orvane::dataPayload(response.body));
        } else {
          value = decodeJSON<Reply>(response.body);
        }
      }
      if constexpr (HasAfterDecode<Op>) Op::afterDecode(*value, facade);
      return ResponseMessage(200, successText<Op>(url), std::nullopt, std::nullopt, encode(*value));
    } catch (const APIError& e) {
      return e.responseMessage;
    } catch (const JsonError& e) {
      return facade.jsonParsingFailure(e);
    }
  }

  template <class Op>
  static typename Op::Reply awaitedValue(const Orvane& facade, const HttpResponse& response) {
    if constexpr (HasDecodeResponse<Op>) {
      return Op::decodeResponse(response);
    } else {
      return facade.awaitedReply<typename Op::Reply>(response);
    }
  }

  /// The reply of a 200 response as both forms decode it, before any afterDecode step.
  template <class Op>
  static typename Op::Reply decodedReply(std::string_view body) {
    if constexpr (HasDecodeResponse<Op>) {
      HttpResponse response;
      response.head.status = 200;
      response.body = std::string(body);
      return Op::decodeResponse(response);
    } else if constexpr (std::same_as<typename Op::Reply, Bytes>) {
      return Bytes(body.begin(), body.end());
    } else {
      return decodeJSON<typename Op::Reply>(body);
    }
  }

  template <class Op>
  static Task<typename Op::Reply> call(Orvane& facade, Op op) {
    using Reply = typename Op::Reply;
    const auto keepAlive = facade.shared_from_this();
    co_await ResumeHere{facade.platform()};
    try {
      auto [request, access] = prepare(std::move(op), facade);
      std::optional<Reply> value;
      auto exchange = facade.resumeAsyncSessionWith(std::move(request), access, [&facade, &value](const HttpResponse& response) {
        value = awaitedValue<Op>(facade, response);
      });
      co_await std::move(exchange);
      if constexpr (HasAfterDecode<Op>) Op::afterDecode(*value, facade);
      co_return std::move(*value);
    } catch (const APIError& e) {
      printFailure<Op>(facade, e.responseMessage);
      throw;
    }
  }

  template <class Op>
  static void call(Orvane& facade, Op op, ResponseCallback callback) {
    if constexpr (HasDiagnosticName<Op>) {
      callback = [weak = facade.weak_from_this(), callback = std::move(callback)](const ResponseMessage& message) {
        if (auto self = weak.lock(); self && message.code != 200) printFailure<Op>(*self, message);
        if (callback) callback(message);
      };
    }
    std::pair<HttpRequest, RequestAccess> prepared;
    try {
      prepared = prepare(std::move(op), facade);
    } catch (const APIError& e) {
      return facade.deliver(std::move(callback), e.responseMessage);
    }
    Orvane* self = &facade;  // the pipeline runs the reply only while the facade lives
    auto reply = [self, url = prepared.first.url](const HttpResponse& response) { return callbackResult<Op>(*self, response, url); };
    facade.resumeSessionWith(std::move(prepared.first), prepared.second, std::move(reply), std::move(callback));
  }

  /// The arguments object decoded into the operation's record.
  template <class Op>
  static Op arguments(const AnyCodable& json) {
    try {
      return decode<Op>(json.isNull() ? AnyCodable::object({}) : json);
    } catch (const DecodingError& e) {
      throw std::invalid_argument(std::string(Op::info.name) + ": argument " + e.what());
    }
  }

  template <class Op>
  static bool registerOperation() {
    OperationEntry entry;
    entry.name = Op::info.name;
    entry.method = Op::info.method;
    entry.path = Op::info.path;
    entry.replyType = typeName<typename Op::Reply>();
    std::apply([&](const auto&... f) { (entry.arguments.push_back(argumentOf(f)), ...); }, Op::fields());
    entry.request = [](Orvane& facade, const AnyCodable& json) { return prepare(arguments<Op>(json), facade).first; };
    entry.call = [](Orvane& facade, const AnyCodable& json) -> Task<AnyCodable> {
      auto running = call(facade, arguments<Op>(json));
      auto reply = co_await std::move(running);
      co_return encode(reply);
    };
    entry.callWithCallback = [](Orvane& facade, const AnyCodable& json, ResponseCallback callback) {
      call(facade, arguments<Op>(json), std::move(callback));
    };
    entry.decodeReply = [](std::string_view body) { return encode(decodedReply<Op>(body)); };
    detail::registerOperation(std::move(entry));
    return true;
  }

 private:
  template <class R, class M>
  static OperationArgument argumentOf(const Field<R, M>& f) {
    return {std::string(f.key), !IsOptional<M>::value};
  }
};

template <class Op>
Task<typename Op::Reply> Orvane::call(Op op) {
  return detail::FacadeAccess::call(*this, std::move(op));
}

template <class Op>
void Orvane::call(Op op, ResponseCallback callback) {
  detail::FacadeAccess::call(*this, std::move(op), std::move(callback));
}

}  // namespace velora

/// Adds an operation to the registry when the library loads.
#define VELORA_REGISTER_OPERATION(Op) \
  [[maybe_unused]] const bool Op##Registered = ::velora::detail::FacadeAccess::registerOperation<Op>()

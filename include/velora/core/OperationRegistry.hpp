#pragma once
// Every REST operation of the facade, enumerable: the `velora call` command, the sandbox's checks
// and the tests run any operation by name, with its arguments as a JSON object.

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <velora/core/AnyCodable.hpp>
#include <velora/core/Orvane.hpp>
#include <velora/core/Task.hpp>

namespace velora {

/// One argument of a registered operation.
struct OperationArgument {
  /// The argument's label, also its key in the arguments object.
  std::string name;
  /// False for an optional argument, which may be left out of the arguments object or be null.
  bool required = true;
};

/// One REST operation of the facade: how to describe it, build its request, run it in either form
/// and decode its reply, all with the arguments as one JSON object.
struct OperationEntry {
  /// The facade's name for it ("getControllableItems").
  std::string name;
  /// The HTTP method it sends ("GET", "POST"...).
  std::string method;
  /// The path below the endpoint, arguments shown as {name} ("/api/lgnm/v1/scan?code={from}").
  std::string path;
  /// The reply record's name.
  std::string replyType;
  /// The arguments in the order the facade's function takes them; empty when it takes none.
  std::vector<OperationArgument> arguments;

  // Each takes the arguments as one JSON object keyed by label; arguments that do not decode
  // throw std::invalid_argument naming the offending key.
  /// The request the operation would send, without sending it (APIError for a local refusal).
  std::function<HttpRequest(Orvane& facade, const AnyCodable& arguments)> request;
  /// The awaitable form; the reply record as JSON.
  std::function<Task<AnyCodable>(Orvane& facade, const AnyCodable& arguments)> call;
  /// The callback form.
  std::function<void(Orvane& facade, const AnyCodable& arguments, ResponseCallback callback)> callWithCallback;
  /// The reply record a 200 response with `body` decodes to, as JSON, without the steps that act on
  /// the facade afterwards; JsonError or APIError when the body does not decode.
  std::function<AnyCodable(std::string_view body)> decodeReply;
};

/// All operations, sorted by name.
const std::vector<OperationEntry>& operationRegistry();
/// The operation with that name, or nullptr.
const OperationEntry* findOperation(std::string_view name);

}  // namespace velora

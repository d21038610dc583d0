// The request pipeline: the token decision, renewal before sending, and the reply rules shared by
// every REST operation.

#include <velora/core/Orvane.hpp>

#include <velora/core/Fatal.hpp>

#include "core/Transfer.hpp"

namespace velora {
namespace {

std::string describe(const std::exception_ptr& error) {
  try {
    std::rethrow_exception(error);
  } catch (const std::exception& e) {
    return e.what();
  } catch (...) {
    return "Unknown error occurred";
  }
}

bool isAPIError(const std::exception_ptr& error, ResponseMessage* message) {
  try {
    std::rethrow_exception(error);
  } catch (const APIError& e) {
    *message = e.responseMessage;
    return true;
  } catch (...) {
    return false;
  }
}

}  // namespace

void Orvane::deliver(ResponseCallback callback, ResponseMessage message) const {
  if (!callback) return;
  auto console = platform_.console;
  platform_.mainQueue->post([callback = std::move(callback), message = std::move(message), console] {
    try {
      callback(message);
    } catch (const std::exception& e) {
      // An application exception must not unwind the main queue.
      if (console) console(std::string("VeloraSDK: a response callback threw: ") + e.what());
    }
  });
}

void Orvane::resumeSessionWith(HttpRequest request, detail::ReplyDecoder decode, ResponseCallback callback) {
  // Covers the decision and the start of a renewal or transfer, not the wait for the reply.
  std::lock_guard lock(resumeSessionLock);
  std::shared_ptr<detail::SessionRenewer> renewer;
  {
    std::lock_guard state(stateMutex_);
    renewer = renewer_;
  }
  const auto action = detail::decideToken(renewer ? renewer->tokenState() : detail::TokenState{});
  if (action == detail::TokenAction::send) return send(request, decode, std::move(callback));
  if (action == detail::TokenAction::refuse) {
    return deliver(std::move(callback), ResponseMessage(detail::kUnauthorizedCode,
                                                        std::string(detail::kResumeSessionName) +
                                                            " - Unauthorized token exception occurred"));
  }
  const auto codes = action == detail::TokenAction::refresh ? detail::kRefreshCodes : detail::kCaptiveCodes;
  std::weak_ptr<Orvane> weak = weak_from_this();
  auto queue = platform_.mainQueue;
  auto completion = [weak, queue, codes, request = std::move(request), decode, callback](detail::RenewalResult result) mutable {
    if (auto self = weak.lock()) {
      return self->finishRenewal(std::move(result), codes, std::move(request), decode, std::move(callback));
    }
    // The caller is still owed its one answer.
    queue->post([callback, m = APIError::requestFailed("The facade was released before the request was sent").responseMessage] {
      if (callback) callback(m);
    });
  };
  if (action == detail::TokenAction::refresh) {
    renewer->refresh(std::move(completion));
  } else {
    renewer->captiveReauth(std::move(completion));
  }
}

void Orvane::finishRenewal(detail::RenewalResult result, detail::RenewalCodes codes, HttpRequest request,
                           detail::ReplyDecoder decode, ResponseCallback callback) {
  if (result.error) {
    ResponseMessage message;
    if (!isAPIError(result.error, &message)) message = ResponseMessage(codes.error, describe(result.error));
    return deliver(std::move(callback), std::move(message));
  }
  if (!result.gotToken) {
    return deliver(std::move(callback),
                   ResponseMessage(codes.nothing, std::string(detail::kResumeSessionName) + " - Unknown error occurred"));
  }
  // The new token reaches the request through the rebuilt session; it is sent once, not renewed again.
  setupSession();
  send(request, decode, std::move(callback));
}

void Orvane::send(const HttpRequest& request, detail::ReplyDecoder decode, ResponseCallback callback) {
  auto current = session();
  if (!current) fatal("Orvane: a request was sent before the session was set up");
  auto queue = platform_.mainQueue;
  auto platform = std::make_shared<const Platform>(platform_);
  current->data(request, [queue, platform, decode, callback = std::move(callback)](DataResult result) mutable {
    // Decoding happens on the main queue, like the rest of the reply, so that the I/O thread
    // only moves bytes.
    queue->post([platform, decode, result = std::move(result), callback = std::move(callback)] {
      ResponseMessage message;
      if (result.error) {
        message = ResponseMessage(result.error->code, result.error->message);
      } else if (result.response->head.status == 200) {
        message = decode(result.response->body, *platform);
      } else {
        message = detail::statusMessage(*result.response);
      }
      try {
        if (callback) callback(message);
      } catch (const std::exception& e) {
        platform->print(std::string("VeloraSDK: a response callback threw: ") + e.what());
      }
    });
  });
}

Task<HttpResponse> Orvane::sendAwaited(HttpRequest request) {
  DataResult result;
  try {
    std::shared_ptr<detail::SessionRenewer> renewer;
    {
      std::lock_guard state(stateMutex_);
      renewer = renewer_;
    }
    // Unlike the callback form, a request without any way to a token goes out as it is.
    switch (detail::decideToken(renewer ? renewer->tokenState() : detail::TokenState{})) {
      case detail::TokenAction::send:
      case detail::TokenAction::refuse:
        break;
      case detail::TokenAction::refresh:
        {
          auto renewal = renewer->refreshAsync();
          co_await std::move(renewal);
        }
        setupSession();
        break;
      case detail::TokenAction::captive:
        {
          auto renewal = renewer->captiveReauthAsync();
          co_await std::move(renewal);
        }
        setupSession();
        break;
    }
    auto current = session();
    if (!current) fatal("Orvane: a request was sent before the session was set up");
    auto fetch = detail::transfer(std::move(current), std::move(request));
    result = co_await fetch;
  } catch (...) {
    result.error = TransportError{transport_error::kUnknown, describe(std::current_exception())};
  }
  if (result.error || !result.response) {
    const std::string cause = result.error ? result.error->message : "no response";
    platform_.print("resumeAsyncSession(with:payload:) - " + cause);
    // Code and message stay as documented; the cause travels in the trace for diagnostics.
    auto error = APIError::responseUnsuccessful(result.error ? "Unknown error occurred" : "Invalid session response");
    error.responseMessage.trace = cause;
    throw error;
  }
  co_return std::move(*result.response);
}

}  // namespace velora

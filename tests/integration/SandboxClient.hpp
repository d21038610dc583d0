#pragma once
// A plain HTTP client of the sandbox's routes for the tests of the sandbox itself, so that what
// they see does not depend on the library's own client.

#include <gtest/gtest.h>
#include <httplib.h>

#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "velora_sandbox/Sandbox.hpp"

namespace velora::testing {

/// A sandbox and a client speaking for one of its demo users at a time: the demo user unless
/// told, nobody (no token) when the user is empty.
struct SandboxPlatform {
  struct Reply {
    int status = 0;
    nlohmann::json body;  // discarded when the body is no JSON
    std::string raw;
    std::string contentType;
    std::string location;
  };

  Reply send(const std::string& method, const std::string& target, const std::string& body = {},
             const std::string& contentType = {}, const std::string& user = sandbox::demo::kUser) {
    httplib::Request req;
    req.method = method;
    req.path = target;
    req.body = body;
    if (!contentType.empty()) req.set_header("Content-Type", contentType);
    if (!user.empty()) req.set_header("Authorization", "Bearer " + token(user));
    const auto res = client.send(req);
    if (!res) {
      ADD_FAILURE() << method << " " << target << ": no answer";
      return {};
    }
    return {res->status, nlohmann::json::parse(res->body, nullptr, false), res->body,
            res->get_header_value("Content-Type"), res->get_header_value("Location")};
  }

  /// Sends `body` as JSON, or nothing when it is null.
  Reply call(const std::string& method, const std::string& target, const nlohmann::json& body = nullptr,
             const std::string& user = sandbox::demo::kUser) {
    return body.is_null() ? send(method, target, {}, {}, user)
                          : send(method, target, body.dump(), "application/json", user);
  }

  /// The live access token the client sends for `user`.
  std::string token(const std::string& user) {
    std::string& issued = tokens_[user];
    if (issued.empty()) issued = sandbox.issueAccessToken(user);
    return issued;
  }

  sandbox::Sandbox sandbox;
  httplib::Client client{sandbox.baseUrl()};

 private:
  std::map<std::string, std::string> tokens_;
};

}  // namespace velora::testing

#pragma once
// What the benchmarks share: a facade on the real adapters, and a login layer that always holds
// the same valid token, so that they measure requests and streams, not renewals.

#include <string>

#include <velora/velora.hpp>

/// A facade with the curl transport and a main queue of its own, for the platform at `endpoint`.
inline std::shared_ptr<velora::Orvane> benchFacade(const std::string& endpoint) {
  velora::Platform p;
  p.transport = velora::makeCurlTransport();
  p.mainQueue = std::make_shared<velora::ThreadQueue>();
  p.executor = velora::makeThreadPool();
  p.defaults = std::make_shared<velora::MemoryStore>();
  p.host = std::make_shared<velora::StaticHostInfo>("bench.app");
  p.clock = std::make_shared<velora::SystemClock>();
  p.console = [](std::string_view) {};
  velora::Orvane::setupSDK(velora::EnvironmentModel(endpoint, 30), p);
  return velora::Orvane::make(p);
}

class FixedSession : public velora::SessionRenewer {
 public:
  explicit FixedSession(std::string token) : token_(std::move(token)) {}
  velora::TokenState tokenState() const override { return {true, true, true}; }
  std::optional<std::string> accessToken() const override { return token_; }
  void refresh(Completion done) override { done({true, nullptr}); }
  void captiveReauth(Completion done) override { done({true, nullptr}); }

 private:
  std::string token_;
};

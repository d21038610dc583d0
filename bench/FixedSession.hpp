#pragma once
// A login layer that always holds the same valid token, so that benchmarks measure requests and
// streams, not renewals.

#include <string>

#include <velora/core/detail/Pipeline.hpp>

class FixedSession : public velora::detail::SessionRenewer {
 public:
  explicit FixedSession(std::string token) : token_(std::move(token)) {}
  velora::detail::TokenState tokenState() const override { return {true, true, true}; }
  std::optional<std::string> accessToken() const override { return token_; }
  void refresh(std::function<void(velora::detail::RenewalResult)> done) override { done({true, nullptr}); }
  void captiveReauth(std::function<void(velora::detail::RenewalResult)> done) override { done({true, nullptr}); }
  velora::Task<void> refreshAsync() override { co_return; }
  velora::Task<void> captiveReauthAsync() override { co_return; }

 private:
  std::string token_;
};

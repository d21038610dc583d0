#pragma once
// What the client says when an operation fails: the error as the library reports it, then, where
// the cause is a common one, what the user can do about it.

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include <velora/core/APIError.hpp>
#include <velora/core/PlatformError.hpp>

namespace velora::cli {

struct Failure {
  /// "<description>: <cause> (code N)".
  std::string message;
  /// Lines of advice ("log in first: ..."), possibly none.
  std::vector<std::string> hints;
};

/// A failed platform request. `app` is the parsed command line, whose login commands the advice names.
Failure describeFailure(const APIError& error, const CLI::App& app);
/// A failure of the identity layer (discovery, login, renewal).
Failure describeFailure(const PlatformError& error);

}  // namespace velora::cli

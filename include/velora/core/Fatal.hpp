#pragma once
// Programming errors stop the process with a clear message instead of returning an error.

#include <string_view>

namespace velora {

struct Platform;

/// Prints `"VeloraSDK fatal error: <message>"` to standard error and aborts.
[[noreturn]] void fatal(std::string_view message);

/// A debug assertion: stops the process when the platform's `debugAssertionsStop` is set (debug
/// builds); otherwise the message is only printed to the platform's console and execution continues.
void debugAssertionFailure(const Platform& platform, std::string_view message);

}  // namespace velora

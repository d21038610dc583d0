#pragma once
// What the WebKitGTK adapters share. Not installed.

namespace velora::detail {

/// Initialises GTK on first use; throws std::runtime_error, its message starting with `who`, when
/// GTK cannot open a display.
void ensureGtk(const char* who);

}  // namespace velora::detail

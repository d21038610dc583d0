#pragma once

#include <string_view>

namespace velora {

/// The version of the library loaded at run time, "MAJOR.MINOR.PATCH". It can be newer than the
/// headers a program was built with; programs built against one major version keep working with
/// any library of that major version, whose number is also the shared library's soname.
std::string_view version() noexcept;

}  // namespace velora

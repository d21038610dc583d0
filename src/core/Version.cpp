#include <velora/core/Version.hpp>

namespace velora {

// Set by the build from the project's version, so the number lives in one place.
std::string_view version() noexcept { return VELORA_VERSION; }

}  // namespace velora

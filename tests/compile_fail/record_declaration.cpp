// Checked by CTest with -fsyntax-only, once per declaration below: the complete declaration must
// compile, the others are mistakes that must stop the build. Apart from the declaration, every
// variant is the same source, so a failure can only come from the declaration itself.

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <velora/core/Record.hpp>

namespace velora {

VELORA_ENUM(Mode, on, off);

struct Part {
  int size = 0;

  VELORA_RECORD(Part, size);
};

struct Reading {
  int id = 0;
  std::optional<std::string> label;
  std::vector<std::string> tags{"raw"};
  std::shared_ptr<Part> shared;
  Part part;
  Mode mode = Mode::off;
  std::optional<std::vector<Part>> parts;
  std::string localNote;

#if defined(DECLARES_EVERY_MEMBER)
  VELORA_RECORD(Reading, id, (label, "name"), tags, shared, part, mode, parts, VELORA_NOT_CODED(localNote));
#elif defined(LEAVES_OUT_A_MEMBER)
  VELORA_RECORD(Reading, id, (label, "name"), tags, shared, mode, parts, VELORA_NOT_CODED(localNote));
#elif defined(NAMES_A_MEMBER_TWICE)
  VELORA_RECORD(Reading, id, (label, "name"), tags, shared, part, mode, (mode, "kind"), VELORA_NOT_CODED(localNote));
#else
#error "define the declaration to check"
#endif
};

}  // namespace velora

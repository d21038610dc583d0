# Writes OUTPUT, a C++ source holding every file of DATA_DIR that matches PATTERN as a string,
# returned by the function FUNCTION: run by the build whenever one of the files changes. The demo
# data (*.json, parsed at start-up) and the map page's web files are embedded this way.
file(GLOB files RELATIVE ${DATA_DIR} ${DATA_DIR}/${PATTERN})
list(SORT files)
set(delimiter "velora_data")
set(entries "")
foreach(name IN LISTS files)
  file(READ ${DATA_DIR}/${name} text)
  string(FIND "${text}" ")${delimiter}\"" clash)
  if(NOT clash EQUAL -1)
    message(FATAL_ERROR "${DATA_DIR}/${name} contains )${delimiter}\", which ends the embedded string")
  endif()
  string(APPEND entries "    {\"${name}\", R\"${delimiter}(${text})${delimiter}\"},\n")
endforeach()
file(WRITE ${OUTPUT}.tmp
"// Generated from ${DATA_DIR} by EmbedData.cmake; edit those files instead.
#include \"DemoData.hpp\"

namespace velora::sandbox::detail {
namespace {
constexpr EmbeddedFile kFiles[] = {
${entries}};
}  // namespace

std::span<const EmbeddedFile> ${FUNCTION}() { return kFiles; }

}  // namespace velora::sandbox::detail
")
file(COPY_FILE ${OUTPUT}.tmp ${OUTPUT} ONLY_IF_DIFFERENT)
file(REMOVE ${OUTPUT}.tmp)

# Writes OUTPUT, a C++ source holding every DATA_DIR/*.json as a string, for the sandbox to
# parse at start-up: run by the build whenever a data file changes.
file(GLOB files RELATIVE ${DATA_DIR} ${DATA_DIR}/*.json)
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
"// Generated from sandbox/data by EmbedData.cmake; edit the JSON files instead.
#include \"DemoData.hpp\"

namespace velora::sandbox::detail {
namespace {
constexpr EmbeddedFile kFiles[] = {
${entries}};
}  // namespace

std::span<const EmbeddedFile> embeddedDataFiles() { return kFiles; }

}  // namespace velora::sandbox::detail
")
file(COPY_FILE ${OUTPUT}.tmp ${OUTPUT} ONLY_IF_DIFFERENT)
file(REMOVE ${OUTPUT}.tmp)

# Installs the built library into a scratch prefix, then builds and runs examples/consumer against
# it with find_package(VeloraSDK CONFIG) and checks the pkg-config file too.
set(prefix ${BINARY_DIR}/package-check/prefix)
set(build ${BINARY_DIR}/package-check/consumer)
file(REMOVE_RECURSE ${BINARY_DIR}/package-check)

function(run)
  execute_process(COMMAND ${ARGV} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed: ${ARGV}\n${out}\n${err}")
  endif()
  set(last_output "${out}" PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} --install ${BINARY_DIR} --prefix ${prefix} --component Unspecified)
set(flags "")
if(SANITIZE)
  set(flags "-fsanitize=address,undefined")
endif()
run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/examples/consumer -B ${build} -DCMAKE_PREFIX_PATH=${prefix}
    -DCMAKE_CXX_FLAGS=${flags} -DCMAKE_EXE_LINKER_FLAGS=${flags} -DCMAKE_BUILD_RPATH=${prefix}/lib)
run(${CMAKE_COMMAND} --build ${build})
run(${build}/consumer)
if(NOT last_output MATCHES "consumer ok")
  message(FATAL_ERROR "consumer printed: ${last_output}")
endif()

set(ENV{PKG_CONFIG_PATH} ${prefix}/lib/pkgconfig)
run(pkg-config --cflags --libs velora)
if(NOT last_output MATCHES "-lvelora")
  message(FATAL_ERROR "pkg-config gave: ${last_output}")
endif()
message(STATUS "installed package works: ${last_output}")

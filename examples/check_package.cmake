# Builds the Debian packages, unpacks them into a scratch root (no dpkg database, no root rights),
# and checks them as a user of each would: the consumer example builds with find_package and with
# pkg-config against that root and runs, both programs print their version, the library carries
# its versioned soname and each package declares what it depends on.
set(work ${BINARY_DIR}/package-check)
set(root ${work}/root)
file(REMOVE_RECURSE ${work})
file(MAKE_DIRECTORY ${root})

function(run)
  execute_process(COMMAND ${ARGV} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed: ${ARGV}\n${out}\n${err}")
  endif()
  set(last_output "${out}" PARENT_SCOPE)
endfunction()
function(expect text pattern what)
  if(NOT text MATCHES "${pattern}")
    message(FATAL_ERROR "${what}: expected ${pattern}, got: ${text}")
  endif()
endfunction()

run(${CPACK} -G DEB -B ${work}/debs --config ${BINARY_DIR}/CPackConfig.cmake)
set(depends_libvelora0 "libcurl")
set(depends_libvelora-dev "libvelora0 \\(= ${VERSION}\\)")
set(depends_velora "libvelora0 \\(= ${VERSION}\\)")
set(depends_velora-sandbox "libc6")
foreach(package libvelora0 libvelora-dev velora velora-sandbox)
  file(GLOB deb ${work}/debs/${package}_${VERSION}_*.deb)
  if(NOT deb)
    message(FATAL_ERROR "no package ${package} in ${work}/debs")
  endif()
  run(dpkg-deb -f ${deb} Depends)
  expect("${last_output}" "${depends_${package}}" "${package} Depends")
  run(dpkg-deb -x ${deb} ${root})
endforeach()

set(usr ${root}/usr)
file(GLOB library ${usr}/lib/libvelora.so.${VERSION})
run(readelf -d ${library})
expect("${last_output}" "SONAME\\)[^\n]*libvelora\\.so\\.${MAJOR}\\]" "soname")

set(ENV{LD_LIBRARY_PATH} ${usr}/lib)
run(${usr}/bin/velora --version)
expect("${last_output}" "^velora ${VERSION}\n$" "velora --version")
run(${usr}/bin/velora-sandbox --version)
expect("${last_output}" "^velora-sandbox ${VERSION}\n$" "velora-sandbox --version")

set(build ${work}/consumer)
run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/examples/consumer -B ${build} -DCMAKE_PREFIX_PATH=${usr}
    -DCMAKE_BUILD_RPATH=${usr}/lib)
run(${CMAKE_COMMAND} --build ${build})
run(${build}/consumer)
expect("${last_output}" "consumer ok" "consumer")

# The pkg-config file alone is enough too, with the compiler called by hand.
set(ENV{PKG_CONFIG_PATH} ${usr}/lib/pkgconfig)
run(pkg-config --cflags --libs velora)
string(STRIP "${last_output}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
run(c++ ${SOURCE_DIR}/examples/consumer/main.cpp ${flags} -o ${work}/consumer-pkg-config)
run(${work}/consumer-pkg-config)
expect("${last_output}" "consumer ok" "consumer built with pkg-config")
message(STATUS "packages work from ${root}")

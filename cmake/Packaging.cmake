# Debian packages, one per install component; `./run package` makes them with `cpack -G DEB`.
# dpkg-shlibdeps reads the Debian libraries each binary links; the packages' own dependencies on
# each other are declared here, pinned to this exact version.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME velora)
set(CPACK_PACKAGE_VENDOR "VeloraSDK")
set(CPACK_PACKAGE_CONTACT "VeloraSDK developers <sdk@velora.invalid>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_HOMEPAGE_URL "https://velora.invalid/sdk")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
# The build keeps its debug information; the packages do not carry it.
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL libvelora0 libvelora-dev velora velora-sandbox)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The CLI links this build's own libraries; dpkg-shlibdeps finds them here, and the dependency on
# their package is declared below.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_SECTION devel)

set(CPACK_DEBIAN_LIBVELORA0_PACKAGE_NAME libvelora0)
set(CPACK_DEBIAN_LIBVELORA0_PACKAGE_SECTION libs)
# Lets other packages built against this one depend on it through dpkg-shlibdeps.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY "=")
set(CPACK_COMPONENT_LIBVELORA0_DESCRIPTION
  "Client library for the Velora smart-building and indoor-positioning platform\nLogin through the platform's identity realm, REST operations, event streams, the map web view\nand advertising the device as a positioning tag.")

set(CPACK_DEBIAN_LIBVELORA-DEV_PACKAGE_NAME libvelora-dev)
set(CPACK_DEBIAN_LIBVELORA-DEV_PACKAGE_SECTION libdevel)
# The headers need only a C++20 compiler; find_package needs CMake, the .pc file pkg-config.
set(CPACK_DEBIAN_LIBVELORA-DEV_PACKAGE_RECOMMENDS "cmake (>= 3.25), pkg-config")
set(CPACK_COMPONENT_LIBVELORA-DEV_DEPENDS libvelora0)
set(CPACK_COMPONENT_LIBVELORA-DEV_DESCRIPTION
  "Development files of the Velora platform client library\nHeaders, the CMake package (find_package(VeloraSDK)) and the pkg-config file (velora).")

set(CPACK_DEBIAN_VELORA_PACKAGE_NAME velora)
set(CPACK_DEBIAN_VELORA_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_VELORA_DEPENDS libvelora0)
set(CPACK_COMPONENT_VELORA_DESCRIPTION
  "Command-line client for the Velora platform\nLog in, call the platform's operations, follow its event streams and advertise as a tag.")

set(CPACK_DEBIAN_VELORA-SANDBOX_PACKAGE_NAME velora-sandbox)
set(CPACK_DEBIAN_VELORA-SANDBOX_PACKAGE_SECTION devel)
set(CPACK_COMPONENT_VELORA-SANDBOX_DESCRIPTION
  "Local Velora platform for demos and tests\nIdentity realm, REST and event-stream endpoints, demo data and fault switches on loopback.")

include(CPack)

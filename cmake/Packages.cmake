# Debian packages: libcorvanefile<ABI number> from component Runtime, libcorvanefile-dev from Development,
# corvane-file-tools from Tools, and the debug symbols of libraries and tools.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME libcorvanefile)
set(CPACK_PACKAGE_CONTACT "Corvane file library authors <maintainers@corvane.invalid>" CACHE STRING
    "Maintainer that the packages name")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_VERBATIM_VARIABLES ON)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS  # where the tools' libraries are before they are installed
    ${PROJECT_BINARY_DIR}/Corvane/Common/libFile ${PROJECT_BINARY_DIR}/platform)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY >=)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS Runtime)  # of exactly the same version
set(CPACK_COMPONENT_TOOLS_DEPENDS Runtime)

set(description
"Chunk files hold serialised chunks back to back after a short header. The
library writes, reads and recovers them, and it reads, lists, writes and
removes extended attributes of files, with every failure logged.

")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libcorvanefile${CORVANE_FILE_ABI})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/cmake/debian/triggers ${PROJECT_BINARY_DIR}/debian/symbols)
set(CPACK_DEBIAN_RUNTIME_DEBUGINFO_PACKAGE ON)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "${description}This package contains the shared libraries.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libcorvanefile-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION
    "${description}This package contains the headers, and the files for CMake and pkg-config.")
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME corvane-file-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_DEBUGINFO_PACKAGE ON)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION
    "${description}This package contains chunkfile, which shows and judges such files.")

set(debian ${PROJECT_BINARY_DIR}/debian)
string(TIMESTAMP year "%Y" UTC)
string(TIMESTAMP now "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(cmake/debian/copyright.in ${debian}/copyright @ONLY)
configure_file(cmake/debian/changelog.in ${debian}/changelog @ONLY)
execute_process(COMMAND gzip -9nf ${debian}/changelog)
configure_file(cmake/debian/symbols.in ${debian}/symbols.in @ONLY)
foreach(component Runtime Development Tools)
  string(TOUPPER ${component} name)
  install(FILES ${debian}/copyright ${debian}/changelog.gz COMPONENT ${component}
          DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${CPACK_DEBIAN_${name}_PACKAGE_NAME})
endforeach()

# The oldest version that serves a program: dpkg-shlibdeps reads it.
add_custom_target(symbols ALL
  COMMAND dpkg-gensymbols -q -c4 -p${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME} -v${PROJECT_VERSION} -I${debian}/symbols.in
    -e$<TARGET_SONAME_FILE:CorvaneFile> -e$<TARGET_SONAME_FILE:CorvanePlatform> -O${debian}/symbols
  DEPENDS CorvaneFile CorvanePlatform VERBATIM)

set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/MendPackages.cmake)
include(CPack)

# Packages: the target `packages` builds their contents and makes a .deb and a tarball of each component.

# The toolchain files of cmake/toolchain/ say DEBIAN_ARCHITECTURE. Under one that does not, only tarballs are made.
if(NOT DEFINED DEBIAN_ARCHITECTURE AND NOT CMAKE_CROSSCOMPILING)
  execute_process(COMMAND dpkg --print-architecture
    OUTPUT_VARIABLE DEBIAN_ARCHITECTURE OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()
set(CPACK_GENERATOR TGZ)
set(CPACK_SYSTEM_NAME ${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR})
if(DEBIAN_ARCHITECTURE)
  set(CPACK_GENERATOR DEB TGZ)
  set(CPACK_SYSTEM_NAME ${CMAKE_SYSTEM_NAME}-${DEBIAN_ARCHITECTURE})
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${DEBIAN_ARCHITECTURE})
endif()

set(CPACK_PACKAGE_NAME psia)
set(CPACK_PACKAGE_CONTACT "The PSIA management service project <psia@camera.example.com>")
set(CPACK_STRIP_FILES ON)
# Paths in the packages are those on the device, whatever the build's prefix is.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
# A package that was made with a strict umask would lock /usr on the device.
file(WRITE ${CMAKE_BINARY_DIR}/open_directories.cmake [[
file(CHMOD_RECURSE "${CPACK_TEMPORARY_INSTALL_DIRECTORY}" DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
]])
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_BINARY_DIR}/open_directories.cmake)
set(CPACK_COMPONENTS_ALL service daemons)
if(PSIA_DOCUMENTS)
  list(APPEND CPACK_COMPONENTS_ALL documents)
endif()
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
set(CPACK_COMPONENT_INCLUDE_TOPLEVEL_DIRECTORY OFF)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
if(DEBIAN_ARCHITECTURE AND NOT CMAKE_CROSSCOMPILING)
  # cpack asks these two which packages have the libraries. Without the second it would make a .deb that names none.
  find_program(FILE_PROGRAM file)
  find_program(SHLIBDEPS_PROGRAM dpkg-shlibdeps)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
endif()

execute_process(COMMAND gzip -9n INPUT_FILE ${CMAKE_SOURCE_DIR}/deploy/debian/changelog
  OUTPUT_FILE ${CMAKE_BINARY_DIR}/changelog.gz)

# package COMPONENT NAME SUMMARY DESCRIPTION
macro(package component name summary description)
  string(TOUPPER ${component} upper)
  set(CPACK_ARCHIVE_${upper}_FILE_NAME ${name}-${PROJECT_VERSION}-${CPACK_SYSTEM_NAME})
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${summary}\n${description}")
  # What Debian's rules want in every package.
  if(PSIA_DOCUMENTS)
    install(FILES deploy/debian/copyright ${CMAKE_BINARY_DIR}/changelog.gz
      DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name} COMPONENT ${component} EXCLUDE_FROM_ALL)
  endif()
endmacro()

package(service psia "management service of a network camera"
  "The FastCGI program behind every URL under /PSIA on a network camera's own web
server, with ready set-ups for nginx under systemd, lighttpd, and BusyBox.")
# A third of the zones that the service names are in tzdata-legacy since Debian 13; base-files has the release's number.
set(CPACK_DEBIAN_SERVICE_PACKAGE_DEPENDS "tzdata, tzdata-legacy | base-files (<< 13~), passwd")
set(CPACK_DEBIAN_SERVICE_PACKAGE_RECOMMENDS "nginx | lighttpd")
set(CPACK_DEBIAN_SERVICE_PACKAGE_SUGGESTS "psia-doc, spawn-fcgi")
set(CPACK_DEBIAN_SERVICE_PACKAGE_CONTROL_EXTRA
  ${PSIA_SETUPS}/debian/postinst;${PSIA_SETUPS}/debian/prerm;${PSIA_SETUPS}/debian/postrm)

package(documents psia-doc "management service of a network camera, documents"
  "Installation, porting, security, troubleshooting, and the reference of all URLs
below /PSIA.")
set(CPACK_DEBIAN_DOCUMENTS_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOCUMENTS_PACKAGE_ARCHITECTURE all)
set(CPACK_ARCHIVE_DOCUMENTS_FILE_NAME psia-doc-${PROJECT_VERSION})

package(daemons psia-camera-daemons "management service of a network camera, daemons for a board"
  "Makes the settings and message queues that the PSIA management service needs,
for development boards that have no camera's daemons. Not for a camera.")
set(CPACK_DEBIAN_DAEMONS_PACKAGE_DEPENDS python3)
set(CPACK_DEBIAN_DAEMONS_PACKAGE_ARCHITECTURE all)
set(CPACK_ARCHIVE_DAEMONS_FILE_NAME psia-camera-daemons-${PROJECT_VERSION})

if(CMAKE_CROSSCOMPILING)
  # Which packages the libraries are in only that machine's own dpkg knows.
  string(APPEND CPACK_DEBIAN_SERVICE_PACKAGE_DEPENDS
    ", libc6, libfcgi0ldbl | libfcgi0t64, libsqlite3-0, libuuid1 | libuuid1t64, libxml2 | libxml2-16")
endif()

if(CPACK_DEBIAN_PACKAGE_SHLIBDEPS AND NOT (FILE_PROGRAM AND SHLIBDEPS_PROGRAM))
  # cpack reads this file before it does anything.
  file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/programs_missing.cmake CONTENT [[
message(FATAL_ERROR "The packages need the programs file and dpkg-shlibdeps. Install them, and configure again:
  apt-get install file dpkg-dev
  cmake @CMAKE_BINARY_DIR@")
]] @ONLY)
  set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_BINARY_DIR}/programs_missing.cmake)
endif()
include(CPack)
add_custom_target(packages COMMAND ${CMAKE_CPACK_COMMAND} COMMENT "Packing" USES_TERMINAL)
if(NOT CPACK_PROJECT_CONFIG_FILE)
  add_dependencies(packages psia psia-rights)
endif()

# Packages: the target `packages` builds their contents and makes a .deb and a tarball of each component.

# The processor that the compiler works for, by Debian's name where it has one.
separate_arguments(flags UNIX_COMMAND "${CMAKE_CXX_COMPILER_ARG1} ${CMAKE_CXX_FLAGS}")
if(CMAKE_CXX_COMPILER_TARGET)
  list(APPEND flags --target=${CMAKE_CXX_COMPILER_TARGET})
endif()
execute_process(COMMAND ${CMAKE_CXX_COMPILER} ${flags} -dumpmachine
  OUTPUT_VARIABLE machine OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
string(REGEX REPLACE "-.*" "" architecture "${machine}")
foreach(pair x86_64=amd64 i[3-6]86=i386 aarch64=arm64 arm.*eabihf=armhf arm.*eabi=armel powerpc64le=ppc64el
    mips64el=mips64el mipsel=mipsel riscv64=riscv64 loongarch64=loong64)
  string(REPLACE "=" ";" pair ${pair})
  list(GET pair 0 pattern)
  if(machine MATCHES "^${pattern}")
    list(GET pair 1 architecture)
    break()
  endif()
endforeach()
if(NOT architecture)
  set(architecture ${CMAKE_SYSTEM_PROCESSOR})
endif()
if(architecture STREQUAL amd64 AND CMAKE_SIZEOF_VOID_P EQUAL 4)
  set(architecture i386)  # -m32
endif()

set(CPACK_GENERATOR DEB TGZ)
set(CPACK_PACKAGE_NAME psia)
set(CPACK_PACKAGE_CONTACT "The PSIA management service project <psia@camera.example.com>")
set(CPACK_SYSTEM_NAME ${CMAKE_SYSTEM_NAME}-${architecture})
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
set(CPACK_COMPONENTS_ALL service)
if(PSIA_DOCUMENTS)
  list(APPEND CPACK_COMPONENTS_ALL documents)
endif()
if(PSIA_DAEMONS)
  list(APPEND CPACK_COMPONENTS_ALL daemons)
endif()
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
set(CPACK_COMPONENT_INCLUDE_TOPLEVEL_DIRECTORY OFF)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
if(CMAKE_CROSSCOMPILING)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${architecture})
else()
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
  ${CMAKE_SOURCE_DIR}/deploy/debian/postinst;${CMAKE_SOURCE_DIR}/deploy/debian/prerm;${CMAKE_SOURCE_DIR}/deploy/debian/postrm)

package(documents psia-doc "management service of a network camera, documents"
  "Installation, porting, security, troubleshooting, and the reference of all URLs
below /PSIA.")
set(CPACK_DEBIAN_DOCUMENTS_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOCUMENTS_PACKAGE_ARCHITECTURE all)
set(CPACK_ARCHIVE_DOCUMENTS_FILE_NAME psia-doc-${PROJECT_VERSION})

package(daemons psia-camera-daemons "management service of a network camera, daemons for a board"
  "Makes the settings and message queues that the PSIA management service needs,
for development boards that have no camera's daemons. Not for a camera.")

if(CMAKE_CROSSCOMPILING)
  # Which packages the libraries are in only that machine's own dpkg knows.
  string(APPEND CPACK_DEBIAN_SERVICE_PACKAGE_DEPENDS
    ", libc6, libfcgi0ldbl | libfcgi0t64, libsqlite3-0, libuuid1 | libuuid1t64, libxml2 | libxml2-16")
  set(CPACK_DEBIAN_DAEMONS_PACKAGE_DEPENDS "libc6, libsqlite3-0")
endif()

include(CPack)
add_custom_target(packages COMMAND ${CMAKE_CPACK_COMMAND} COMMENT "Packing" USES_TERMINAL
  DEPENDS psia psia-rights $<$<BOOL:${PSIA_DAEMONS}>:camera-daemons>)

# What `cmake --install` places and what `cpack` packs: the program, the set-ups that it runs under, the documents.
include(GNUInstallDirs)

set(PSIA_LIBEXEC_DIR ${CMAKE_INSTALL_LIBEXECDIR}/psia)
set(PSIA_SHARE_DIR ${CMAKE_INSTALL_DATADIR}/psia)
set(PSIA_UNIT_DIR lib/systemd/system)

set_source_files_properties(${CMAKE_SOURCE_DIR}/src/command_line.cpp PROPERTIES
  COMPILE_DEFINITIONS PSIA_VERSION="${PROJECT_VERSION}")

install(TARGETS psia RUNTIME DESTINATION ${PSIA_LIBEXEC_DIR})
install(PROGRAMS deploy/psia-rights DESTINATION ${PSIA_LIBEXEC_DIR})
install(FILES deploy/lighttpd.conf deploy/nginx.conf DESTINATION ${PSIA_SHARE_DIR})
install(PROGRAMS deploy/psia.init DESTINATION ${PSIA_SHARE_DIR})
install(FILES deploy/psia.socket deploy/psia.service DESTINATION ${PSIA_UNIT_DIR})
# In the places that their links expect.
file(GLOB PSIA_DOCUMENTS CONFIGURE_DEPENDS docs/*.md docs/*.png docs/*.svg)
install(FILES README.md CHANGELOG.md CONTRIBUTING.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES ${PSIA_DOCUMENTS} docs/openapi.json DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs)
install(DIRECTORY docs/reference docs/examples DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs)

# The deployment files name the program where the packages have it; an installation elsewhere names its own place.
string(CONCAT PSIA_NAME_PLACES
  "set(program_dir \"\${CMAKE_INSTALL_PREFIX}/${PSIA_LIBEXEC_DIR}\")\n"
  "set(share_dir \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${PSIA_SHARE_DIR}\")\n"
  "set(unit_dir \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${PSIA_UNIT_DIR}\")\n"
  [[
foreach(name IN ITEMS "${share_dir}/lighttpd.conf" "${share_dir}/psia.init" "${unit_dir}/psia.service")
  file(READ "${name}" content)
  string(REPLACE "/usr/libexec/psia" "${program_dir}" content "${content}")
  file(WRITE "${name}" "${content}")
endforeach()
]])
install(CODE "${PSIA_NAME_PLACES}")

# Packages: cpack --config build/CPackConfig.cmake makes both.
set(CPACK_GENERATOR DEB TGZ)
set(CPACK_PACKAGE_NAME psia)
set(CPACK_PACKAGE_CONTACT "The PSIA management service project <psia@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "PSIA management service of a network camera")
set(CPACK_PACKAGE_DESCRIPTION "The FastCGI program behind every URL under /PSIA on a network camera's own web server,
with ready set-ups for nginx under systemd, lighttpd, and BusyBox.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "tzdata, init-system-helpers, passwd")
if(CMAKE_CROSSCOMPILING)
  # The toolchain file says the architecture. Which packages its libraries are in only that machine's own dpkg knows.
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${DEBIAN_ARCHITECTURE})
  set(CPACK_SYSTEM_NAME ${CMAKE_SYSTEM_NAME}-${DEBIAN_ARCHITECTURE})
  string(APPEND CPACK_DEBIAN_PACKAGE_DEPENDS
    ", libc6, libfcgi0ldbl | libfcgi0t64, libsqlite3-0, libstdc++6, libuuid1 | libuuid1t64, libxml2")
else()
  set(CPACK_SYSTEM_NAME ${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR})
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
endif()
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "nginx | lighttpd")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
  ${CMAKE_SOURCE_DIR}/deploy/debian/postinst;${CMAKE_SOURCE_DIR}/deploy/debian/prerm;${CMAKE_SOURCE_DIR}/deploy/debian/postrm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)

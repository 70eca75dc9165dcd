# What `cmake --install` places and what `cpack` packs, in three components: the service with its set-ups, the
# documents, and the daemons for development boards.
include(GNUInstallDirs)
set(PSIA_DAEMONS_MODULES __init__.py __main__.py texts.py messages.py settings.py clock.py device.py daemons.py
  board.py schema.sql factory.sql namespaces.txt)

option(PSIA_UNITS "Install the systemd units" ON)
set(PSIA_UNIT_DIR lib/systemd/system CACHE STRING "Where to, below the prefix or absolute")
option(PSIA_DOCUMENTS "Install the documents" ON)

set(PSIA_LIBEXEC_DIR ${CMAKE_INSTALL_LIBEXECDIR}/psia)
set(PSIA_SHARE_DIR ${CMAKE_INSTALL_DATADIR}/psia)

install(TARGETS psia psia-rights RUNTIME DESTINATION ${PSIA_LIBEXEC_DIR} COMPONENT service)
install(FILES ${PSIA_SETUPS}/lighttpd.conf ${PSIA_SETUPS}/nginx.conf DESTINATION ${PSIA_SHARE_DIR} COMPONENT service)
install(PROGRAMS ${PSIA_SETUPS}/psia.init DESTINATION ${PSIA_SHARE_DIR} COMPONENT service)
set(PSIA_NAMING_FILES ${PSIA_SHARE_DIR}/lighttpd.conf ${PSIA_SHARE_DIR}/psia.init)
if(PSIA_UNITS)
  install(FILES ${PSIA_SETUPS}/psia.socket ${PSIA_SETUPS}/psia.service DESTINATION ${PSIA_UNIT_DIR} COMPONENT service)
  list(APPEND PSIA_NAMING_FILES ${PSIA_UNIT_DIR}/psia.service)
endif()

# These name the program where the packages have it; an installation elsewhere names its own place.
string(CONCAT PSIA_NAME_PLACES "set(program_dir \"${PSIA_LIBEXEC_DIR}\")\n" "set(names \"${PSIA_NAMING_FILES}\")\n" [[
cmake_path(ABSOLUTE_PATH program_dir BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}")
foreach(name IN LISTS names)
  cmake_path(ABSOLUTE_PATH name BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}")
  file(READ "$ENV{DESTDIR}${name}" content)
  string(REPLACE "/usr/libexec/psia" "${program_dir}" content "${content}")
  file(WRITE "$ENV{DESTDIR}${name}" "${content}")
endforeach()
]])
install(CODE "${PSIA_NAME_PLACES}" COMPONENT service)

if(PSIA_DOCUMENTS)
  # In the places that their links expect.
  file(GLOB documents CONFIGURE_DEPENDS docs/*.md docs/*.png docs/*.svg)
  install(FILES README.md CHANGELOG.md CONTRIBUTING.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documents)
  install(FILES ${documents} docs/psia.xsd docs/Dockerfile DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs COMPONENT documents)
  install(DIRECTORY docs/reference docs/examples DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs COMPONENT documents
    PATTERN __pycache__ EXCLUDE)
endif()
# For boards that have no daemons of their own, so only with `cmake --install BUILD --component daemons`. Of the simulated
# camera only what the daemons need.
list(TRANSFORM PSIA_DAEMONS_MODULES PREPEND simulator/)
install(PROGRAMS ${PSIA_SETUPS}/camera-daemons DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT daemons EXCLUDE_FROM_ALL)
install(FILES ${PSIA_DAEMONS_MODULES} DESTINATION ${PSIA_SHARE_DIR}/simulator COMPONENT daemons EXCLUDE_FROM_ALL)

include(${CMAKE_CURRENT_LIST_DIR}/packages.cmake)

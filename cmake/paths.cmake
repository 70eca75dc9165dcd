# Where a camera has what the service shares with its other programs. docs/porting.md tells who uses these paths.
set(PSIA_SETTINGS_DIR /usr/local/orvid CACHE STRING "Folder of the settings, morvid.db and conf/default.db")
set(PSIA_DOCUMENT_ROOT /usr/local/httpd/htdocs CACHE STRING "Folder of the web server's pages")
set(PSIA_EXCHANGE_DIR ${PSIA_DOCUMENT_ROOT}/Web/updownload CACHE STRING "Folder of exports and uploads")
set(PSIA_FACTORY_DATA /dev/mtdblock7 CACHE STRING "File or device with the serial number")

set(PSIA_PATHS PSIA_SETTINGS_DIR PSIA_DOCUMENT_ROOT PSIA_EXCHANGE_DIR PSIA_FACTORY_DATA)
foreach(path IN LISTS PSIA_PATHS)
  # They stand in C++, shell, units and the web servers' patterns, where other characters would need quotes.
  if(NOT ${path} MATCHES "^(/[A-Za-z0-9_][A-Za-z0-9._-]*)+$")
    message(FATAL_ERROR "${path} is \"${${path}}\". It must be an absolute path of letters, digits, \"_\", \".\" and \"-\".")
  endif()
endforeach()

# Where the exchange directory would be among the pages, so that the web servers refuse it.
set(PSIA_EXCHANGE_URL /Web/updownload)
cmake_path(IS_PREFIX PSIA_DOCUMENT_ROOT ${PSIA_EXCHANGE_DIR} NORMALIZE is_page)
if(is_page)
  cmake_path(RELATIVE_PATH PSIA_EXCHANGE_DIR BASE_DIRECTORY ${PSIA_DOCUMENT_ROOT} OUTPUT_VARIABLE PSIA_EXCHANGE_URL)
  string(PREPEND PSIA_EXCHANGE_URL /)
endif()

# For the sources, which include core/paths.h.
add_library(psia_paths INTERFACE)
target_include_directories(psia_paths INTERFACE ${CMAKE_SOURCE_DIR}/src)
foreach(path PSIA_SETTINGS_DIR PSIA_EXCHANGE_DIR PSIA_FACTORY_DATA)
  target_compile_definitions(psia_paths INTERFACE ${path}="${${path}}")
endforeach()

# The set-ups name the paths as they are by default. Their copies in the build folder, which are installed, have this
# build's.
set(defaults "PSIA_SETTINGS_DIR=/usr/local/orvid" "PSIA_EXCHANGE_DIR=/usr/local/httpd/htdocs/Web/updownload"
  "PSIA_DOCUMENT_ROOT=/usr/local/httpd/htdocs" "PSIA_EXCHANGE_URL=/Web/updownload" "PSIA_FACTORY_DATA=/dev/mtdblock7")
set(PSIA_SETUPS ${CMAKE_BINARY_DIR}/deploy)
foreach(file lighttpd.conf nginx.conf psia.init psia.socket psia.service camera-daemons debian/postinst debian/prerm debian/postrm)
  file(READ ${CMAKE_SOURCE_DIR}/deploy/${file} content)
  foreach(default IN LISTS defaults)
    string(REGEX MATCH "^([^=]*)=(.*)$" matched ${default})
    string(REPLACE "${CMAKE_MATCH_2}" "@${CMAKE_MATCH_1}@" content "${content}")
  endforeach()
  file(CONFIGURE OUTPUT ${PSIA_SETUPS}/${file} CONTENT "${content}" @ONLY)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/deploy/${file})
endforeach()

# Debian packages, one of each component of the installation:
#
#     scripts/configure packages && cmake --build build/packages && (cd build/packages && cpack)
#
# scripts/check-packages tries them in a fresh Debian system.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME offlinetz)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/compress_documents.cmake)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "The offlinetz developers <offlinetz@localhost>")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)  # Dependencies on libraries, as dpkg-shlibdeps finds them.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})

# Each package has both licences and a changelog, which states when this version was made.
file(READ data/NOTICE.md notice)
string(REGEX REPLACE "\n+$" "" notice "${notice}")
string(REPLACE "\n\n" "\n.\n" notice "${notice}")
string(REPLACE "\n" "\n " notice "${notice}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/copyright.in packages/copyright @ONLY)
file(STRINGS CHANGELOG.md day REGEX "^## ${PROJECT_VERSION} ")
string(REGEX REPLACE ".*\\((.*)\\).*" "\\1" day "${day}")
execute_process(COMMAND date --utc --rfc-email --date=${day}
  OUTPUT_VARIABLE date OUTPUT_STRIP_TRAILING_WHITESPACE)
file(CONFIGURE OUTPUT packages/changelog @ONLY CONTENT
"offlinetz (@PROJECT_VERSION@) unstable; urgency=medium

  * CHANGELOG.md of the sources says what changed.

 -- @CPACK_DEBIAN_PACKAGE_MAINTAINER@  @date@
")
set(library libofflinetz${PROJECT_VERSION_MAJOR})
file(WRITE ${PROJECT_BINARY_DIR}/packages/triggers "activate-noawait ldconfig\n")
file(WRITE ${PROJECT_BINARY_DIR}/packages/shlibs
  "libofflinetz ${PROJECT_VERSION_MAJOR} ${library} (>= ${PROJECT_VERSION})\n")

# Makes a package of the files of a component, if there are any.
get_cmake_property(components COMPONENTS)
macro(debian_package component name section depends summary text)
  if("${component}" IN_LIST components)
    list(APPEND CPACK_COMPONENTS_ALL ${component})
    string(TOUPPER ${component} key)
    set(CPACK_DEBIAN_${key}_PACKAGE_NAME ${name})
    set(CPACK_DEBIAN_${key}_PACKAGE_SECTION ${section})
    set(CPACK_DEBIAN_${key}_PACKAGE_DEPENDS "${depends}")
    set(CPACK_DEBIAN_${key}_DESCRIPTION "time zones of points without a network: ${summary}\n${text}")
    install(FILES ${PROJECT_BINARY_DIR}/packages/copyright ${PROJECT_BINARY_DIR}/packages/changelog
      DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name} COMPONENT ${component} EXCLUDE_FROM_ALL)
  endif()
endmacro()

debian_package(data offlinetz-data misc "" "world database"
"The time zones of the world as polygons, from OpenStreetMap. The program and
the libraries of offlinetz read it.")
set(CPACK_DEBIAN_DATA_PACKAGE_ARCHITECTURE all)

debian_package(library ${library} libs offlinetz-data "libraries"
"Finds the time zones that contain a latitude and longitude. There are a C
library and an extension of SQLite.")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA
  ${PROJECT_BINARY_DIR}/packages/triggers ${PROJECT_BINARY_DIR}/packages/shlibs)

debian_package(development libofflinetz-dev libdevel "${library} (= ${PROJECT_VERSION})" "C header"
"Header and static library of libofflinetz, and what pkg-config and CMake need
to find them.")

debian_package(program offlinetz utils offlinetz-data "program"
"Finds the time zones that contain points. Compiles, inspects and compares the
databases that hold them, and shows them on a map. Also holds the time zone
service of a device, as a library with its headers.")
set(CPACK_DEBIAN_PROGRAM_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/packages/triggers)

# The module fits one minor version of Python.
if(Python_VERSION MATCHES "^3\\.([0-9]+)")
  math(EXPR next "${CMAKE_MATCH_1} + 1")
  set(pythons "python3 (>= 3.${CMAKE_MATCH_1}), python3 (<< 3.${next})")
endif()
set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS python3-numpy)
debian_package(python python3-offlinetz python "${pythons}, offlinetz-data" "Python module"
"Finds the time zones that contain a latitude and longitude, for points and for
whole tables.")

include(CPack)

# Where the program and the library find their files: at paths relative to their own directory that are the same in the
# build tree and in an installation, so that either can be moved.
include(GNUInstallDirs)
file(RELATIVE_PATH OFFLINETZ_PROGRAM_TO_LIBRARIES
     "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}")
file(RELATIVE_PATH OFFLINETZ_PROGRAM_TO_DATA
     "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_DATADIR}/offlinetz")
file(RELATIVE_PATH OFFLINETZ_PKGCONFIG_TO_PREFIX
     "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
file(RELATIVE_PATH OFFLINETZ_LIBRARIES_TO_DATA
     "${CMAKE_INSTALL_FULL_LIBDIR}" "${CMAKE_INSTALL_FULL_DATADIR}/offlinetz")

set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/cli/${OFFLINETZ_PROGRAM_TO_LIBRARIES})
# Every program is one directory below the top of the build tree, so one path fits all.
set(CMAKE_INSTALL_RPATH "$ORIGIN" "$ORIGIN/${OFFLINETZ_PROGRAM_TO_LIBRARIES}")
if(NOT CMAKE_SKIP_INSTALL_RPATH)  # Debian packages have no such paths (Packages.cmake).
  set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)
endif()

# Links a data file into the build tree where an installation has it, with a relative link.
function(link_data file name)
  get_filename_component(directory
    ${PROJECT_BINARY_DIR}/cli/${OFFLINETZ_PROGRAM_TO_DATA} ABSOLUTE)
  file(MAKE_DIRECTORY ${directory})
  file(RELATIVE_PATH target ${directory} ${file})
  file(CREATE_LINK ${target} ${directory}/${name} SYMBOLIC)
endfunction()

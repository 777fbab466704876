# Where the program finds its files: at paths relative to its own directory that are the same in the
# build tree and in an installation, so that either can be moved.
include(GNUInstallDirs)
file(RELATIVE_PATH OFFLINETZ_PROGRAM_TO_LIBRARIES
     "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}")
file(RELATIVE_PATH OFFLINETZ_PROGRAM_TO_DATA
     "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_DATADIR}/offlinetz")

set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/cli/${OFFLINETZ_PROGRAM_TO_LIBRARIES})
# Every program is one directory below the top of the build tree, so one path fits all.
set(CMAKE_INSTALL_RPATH "$ORIGIN" "$ORIGIN/${OFFLINETZ_PROGRAM_TO_LIBRARIES}")
set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)

# Where the program finds what belongs to it: at places relative to its own directory that are the
# same in the build tree and where it is installed, so that either may be moved.
include(GNUInstallDirs)
file(RELATIVE_PATH OFFLINETZ_PROGRAM_TO_LIBRARIES
     "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}")
file(RELATIVE_PATH OFFLINETZ_PROGRAM_TO_DATA
     "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_DATADIR}/offlinetz")

set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/app/${OFFLINETZ_PROGRAM_TO_LIBRARIES})
# Programs lie one directory below the build tree's top, all of them, so one path fits everywhere.
set(CMAKE_INSTALL_RPATH "$ORIGIN" "$ORIGIN/${OFFLINETZ_PROGRAM_TO_LIBRARIES}")
set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)

# What `cmake --install` installs: the program with its man pages and completion, the service's
# library and the platform stand-in that both need, the world database and the map page, the headers
# of the interface, the stand-in and the reader, and the documents. library/CMakeLists.txt adds the
# C library.
#
# Each file belongs to a component. A plain installation has all of them; Packages.cmake makes a
# Debian package of each. The service's library and its headers belong to the program: on a host it
# is the only one that loads the service.
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME program)
install(TARGETS offlinetz offlinetimezone_impl platform_runtime)
install(FILES ${OFFLINETZ_WORLD_DATABASE} DESTINATION ${CMAKE_INSTALL_DATADIR}/offlinetz
        RENAME world.bin COMPONENT data)
install(FILES data/map.html DESTINATION ${CMAKE_INSTALL_DATADIR}/offlinetz)

set(package ${PROJECT_SOURCE_DIR}/hardware/interfaces/offlinetimezone/1.0)
set(headers ${CMAKE_INSTALL_INCLUDEDIR}/offlinetz)
install(DIRECTORY ${package}/include/ ${PROJECT_SOURCE_DIR}/platform/include/
  ${PROJECT_SOURCE_DIR}/platform/libs/include/ DESTINATION ${headers})
install(FILES ${package}/default/zonedetect.h ${package}/default/sha1.h ${package}/default/export.h
        DESTINATION ${headers})
install(FILES cli/completion.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
        RENAME offlinetz)
if(OFFLINETZ_HAS_MAN_PAGES)
  install(DIRECTORY ${PROJECT_BINARY_DIR}/man1 DESTINATION ${CMAKE_INSTALL_MANDIR})
endif()
install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs)
install(FILES README.md HACKING.md CONTRIBUTING.md SECURITY.md CHANGELOG.md LICENSE
  DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES data/NOTICE.md DESTINATION ${CMAKE_INSTALL_DOCDIR}/data)
install(FILES bench/RESULTS.md DESTINATION ${CMAKE_INSTALL_DOCDIR}/bench)

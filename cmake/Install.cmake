# What `cmake --install` puts where: the program, its man pages and completion, the service's library
# and the host layer that both need, the world database and the map's page, the headers of the
# interface, the host layer and the reader, and the documents.
install(TARGETS offlinetz offlinetimezone_impl host_layer)
install(FILES ${OFFLINETZ_WORLD_DATABASE} DESTINATION ${CMAKE_INSTALL_DATADIR}/offlinetz
        RENAME world.bin)
install(FILES data/map.html DESTINATION ${CMAKE_INSTALL_DATADIR}/offlinetz)

set(package ${PROJECT_SOURCE_DIR}/hardware/interfaces/offlinetimezone/1.0)
set(headers ${CMAKE_INSTALL_INCLUDEDIR}/offlinetz)
install(DIRECTORY ${package}/include/ ${PROJECT_SOURCE_DIR}/host/include/
  ${PROJECT_SOURCE_DIR}/host/libs/include/ DESTINATION ${headers})
install(FILES ${package}/default/zonedetect.h ${package}/default/sha1.h ${package}/default/export.h
        DESTINATION ${headers})
install(FILES app/completion.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
        RENAME offlinetz)
if(OFFLINETZ_HAS_MAN_PAGES)
  install(DIRECTORY ${PROJECT_BINARY_DIR}/man1 DESTINATION ${CMAKE_INSTALL_MANDIR})
endif()
install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs)
install(FILES README.md LICENSE data/NOTICE.md DESTINATION ${CMAKE_INSTALL_DOCDIR})

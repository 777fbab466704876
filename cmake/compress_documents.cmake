# cpack runs it on the files of the packages: Debian wants man pages and changelogs compressed.
file(GLOB_RECURSE documents ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*)
list(FILTER documents INCLUDE REGEX "/man1/[^/]*$|/changelog$")
execute_process(COMMAND gzip -9n ${documents} COMMAND_ERROR_IS_FATAL ANY)

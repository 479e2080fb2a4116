# Run by cpack on what it is about to pack: what Debian's policy asks of documentation.
set(TOP "${CPACK_TEMPORARY_INSTALL_DIRECTORY}${CPACK_INSTALL_PREFIX}")
set(SHARE "${TOP}/share")
set(DOCUMENTATION "${SHARE}/doc/${CPACK_PACKAGE_NAME}")
set(OVERRIDES "${SHARE}/lintian/overrides/${CPACK_PACKAGE_NAME}")

configure_file("${CPACK_QUILLMEND_SOURCE}/LICENSE" "${DOCUMENTATION}/copyright" COPYONLY)
string(TIMESTAMP NOW "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE "${DOCUMENTATION}/changelog" "${CPACK_PACKAGE_NAME} (${CPACK_PACKAGE_VERSION}) unstable; urgency=medium

  * Version ${CPACK_PACKAGE_VERSION}.

 -- ${CPACK_PACKAGE_CONTACT}  ${NOW}
")
execute_process(COMMAND gzip -9nf "${DOCUMENTATION}/changelog" "${SHARE}/man/man1/Quillmend.1" COMMAND_ERROR_IS_FATAL ANY)

file(WRITE "${OVERRIDES}" "# The system's folders, so that nobody's LD_LIBRARY_PATH comes before them in programs of root's.
${CPACK_PACKAGE_NAME}: custom-library-search-path RPATH /$LIB [usr/lib/Quillmend.app/Contents/*]
${CPACK_PACKAGE_NAME}: custom-library-search-path RPATH /usr/$LIB [usr/lib/Quillmend.app/Contents/*]
# The package switches nothing on: what it keeps in order is what somebody has switched on by systemctl.
${CPACK_PACKAGE_NAME}: maintainer-script-calls-systemctl *
")

# The folder that cpack itself has made, too: whatever the umask, everybody may read.
set(EVERYBODY_READS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
set(EVERYBODY_RUNS ${EVERYBODY_READS} OWNER_EXECUTE GROUP_EXECUTE WORLD_EXECUTE)
file(CHMOD "${TOP}" DIRECTORY_PERMISSIONS ${EVERYBODY_RUNS})
file(CHMOD_RECURSE "${SHARE}/doc" "${SHARE}/lintian" FILE_PERMISSIONS ${EVERYBODY_READS} DIRECTORY_PERMISSIONS ${EVERYBODY_RUNS})

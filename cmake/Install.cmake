# `cmake --install <build> [--prefix P] [--strip]`: the bundle in lib, its program on the PATH, and what a desktop
# shows it by. Nobody but the owner may write to any of it, whatever the umask of the build was.
set(EVERYBODY_READS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
set(EVERYBODY_RUNS ${EVERYBODY_READS} OWNER_EXECUTE GROUP_EXECUTE WORLD_EXECUTE)

# Half a bundle is worse than none.
install(CODE "
  if(NOT EXISTS \"${QUILLMEND_BUNDLE}/Contents/MacOS/Quillmend\")
    message(FATAL_ERROR \"Not installed: ${QUILLMEND_BUNDLE} is not built yet\")
  endif()
")
install(DIRECTORY ${QUILLMEND_BUNDLE} DESTINATION lib
  FILE_PERMISSIONS ${EVERYBODY_READS} DIRECTORY_PERMISSIONS ${EVERYBODY_RUNS}
  REGEX "/Contents/(MacOS|Helpers|SharedSupport|Frameworks)/[^/]+$" PERMISSIONS ${EVERYBODY_RUNS})
install(CODE [[
  set(LINK "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/bin/Quillmend")
  message(STATUS "Installing: ${LINK}")
  file(MAKE_DIRECTORY "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/bin")
  file(CREATE_LINK ../lib/Quillmend.app/Contents/MacOS/Quillmend "${LINK}" SYMBOLIC)
]])
if(NOT QUILLMEND_WINDOW)
  return()  # a desktop has nothing to show then
endif()
install(DIRECTORY ${CMAKE_BINARY_DIR}/share/ DESTINATION share
  FILE_PERMISSIONS ${EVERYBODY_READS} DIRECTORY_PERMISSIONS ${EVERYBODY_RUNS})
# A launcher looks for the program on a PATH of its own, on which few prefixes are: the entry names the whole path.
# Quoted twice: within the quotation marks of Exec, then as a text of the file.
install(CODE [[
  set(ENTRY "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/share/applications/com.vordenworks.Quillmend.desktop")
  get_filename_component(PROGRAM "${CMAKE_INSTALL_PREFIX}/bin/Quillmend" ABSOLUTE)
  string(REGEX REPLACE "([\"`$\\])" "\\\\\\1" QUOTED "${PROGRAM}")
  string(REPLACE "\\" "\\\\" QUOTED "${QUOTED}")
  string(REPLACE "%" "%%" QUOTED "${QUOTED}")
  string(REPLACE "\\" "\\\\" PLAIN "${PROGRAM}")
  file(READ "${ENTRY}" TEXT)
  string(REPLACE "\nTryExec=Quillmend\n" "\nTryExec=${PLAIN}\n" TEXT "${TEXT}")
  string(REPLACE "\nExec=Quillmend\n" "\nExec=\"${QUOTED}\"\n" TEXT "${TEXT}")
  file(WRITE "${ENTRY}" "${TEXT}")
]])

# `cmake --install <build> [--prefix P] [--strip]`: the bundle in lib, its program on the PATH, its manual page, completion and
# units, and what a desktop shows it by. Nobody but the owner may write to any of it, whatever the umask of the build was.
set(EVERYBODY_READS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
set(EVERYBODY_RUNS ${EVERYBODY_READS} OWNER_EXECUTE GROUP_EXECUTE WORLD_EXECUTE)

# Half a bundle is worse than none.
install(CODE "
  if(NOT EXISTS \"${QUILLMEND_BUNDLE}/Contents/MacOS/Quillmend\")
    message(FATAL_ERROR \"Not installed: ${QUILLMEND_BUNDLE} is not built yet\")
  endif()
")
# Folders that are there stay as they are; of those above what it installs CMake asks the umask.
install(CODE "
  set(EVERYBODY_RUNS ${EVERYBODY_RUNS})
  set(STRIP \"${CMAKE_STRIP}\")
  set(BUNDLE \"${QUILLMEND_BUNDLE}\")
")
install(CODE [[
  set(TOP "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}")
  foreach(FOLDER . bin lib lib/systemd lib/systemd/system share share/man share/man/man1 share/bash-completion
                 share/bash-completion/completions)
    if(NOT EXISTS "${TOP}/${FOLDER}")
      file(MAKE_DIRECTORY "${TOP}/${FOLDER}")
      file(CHMOD "${TOP}/${FOLDER}" DIRECTORY_PERMISSIONS ${EVERYBODY_RUNS})
    endif()
  endforeach()
]])
install(DIRECTORY ${QUILLMEND_BUNDLE} DESTINATION lib
  FILE_PERMISSIONS ${EVERYBODY_READS} DIRECTORY_PERMISSIONS ${EVERYBODY_RUNS}
  REGEX "/Contents/(MacOS|Helpers|SharedSupport|Frameworks)/[^/]+$" PERMISSIONS ${EVERYBODY_RUNS})
# CMake strips what it installs as a target, and the bundle is a folder to it.
install(CODE [[
  if(CMAKE_INSTALL_DO_STRIP)
    file(GLOB PROGRAMS RELATIVE "${BUNDLE}" "${BUNDLE}/Contents/MacOS/*" "${BUNDLE}/Contents/Helpers/*"
         "${BUNDLE}/Contents/SharedSupport/*" "${BUNDLE}/Contents/Frameworks/*")
    list(TRANSFORM PROGRAMS PREPEND "${TOP}/lib/Quillmend.app/")
    execute_process(COMMAND "${STRIP}" ${PROGRAMS} COMMAND_ERROR_IS_FATAL ANY)
  endif()
  set(LINK "${TOP}/bin/Quillmend")
  message(STATUS "Installing: ${LINK}")
  file(CREATE_LINK ../lib/Quillmend.app/Contents/MacOS/Quillmend "${LINK}" SYMBOLIC)
]])

set(PACKAGING ${PROJECT_SOURCE_DIR}/packaging)
configure_file(${PACKAGING}/Quillmend.1.in ${CMAKE_BINARY_DIR}/packaging/Quillmend.1 @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/packaging/Quillmend.1 DESTINATION share/man/man1 PERMISSIONS ${EVERYBODY_READS})
install(FILES ${PACKAGING}/Quillmend.bash DESTINATION share/bash-completion/completions RENAME Quillmend
  PERMISSIONS ${EVERYBODY_READS})
install(FILES ${PACKAGING}/quillmend-repair.service ${PACKAGING}/quillmend-repair.timer DESTINATION lib/systemd/system
  PERMISSIONS ${EVERYBODY_READS})
# A scheduler and a launcher look for the program on a PATH of their own, on which few prefixes are: they get the whole path.
# To systemd "%" and, without the colon, "$" mean something; it starts nothing whose path has a quotation mark or backslash.
install(CODE [[
  get_filename_component(PROGRAM "${CMAKE_INSTALL_PREFIX}/bin/Quillmend" ABSOLUTE)
  set(UNIT "${TOP}/lib/systemd/system/quillmend-repair.service")
  string(REPLACE "%" "%%" QUOTED "${PROGRAM}")
  file(READ "${UNIT}" TEXT)
  string(REPLACE "\nExecStart=Quillmend " "\nExecStart=:\"${QUOTED}\" " TEXT "${TEXT}")
  file(WRITE "${UNIT}" "${TEXT}")
]])

if(NOT QUILLMEND_WINDOW)
  return()  # a desktop has nothing to show then
endif()
install(DIRECTORY ${CMAKE_BINARY_DIR}/share/ DESTINATION share
  FILE_PERMISSIONS ${EVERYBODY_READS} DIRECTORY_PERMISSIONS ${EVERYBODY_RUNS})
# Quoted twice: within the quotation marks of Exec, then as a text of the file.
install(CODE [[
  set(ENTRY "${TOP}/share/applications/com.vordenworks.Quillmend.desktop")
  string(REGEX REPLACE "([\"`$\\])" "\\\\\\1" QUOTED "${PROGRAM}")
  string(REPLACE "\\" "\\\\" QUOTED "${QUOTED}")
  string(REPLACE "%" "%%" QUOTED "${QUOTED}")
  string(REPLACE "\\" "\\\\" PLAIN "${PROGRAM}")
  file(READ "${ENTRY}" TEXT)
  string(REPLACE "\nTryExec=Quillmend\n" "\nTryExec=${PLAIN}\n" TEXT "${TEXT}")
  string(REPLACE "\nExec=Quillmend\n" "\nExec=\"${QUOTED}\"\n" TEXT "${TEXT}")
  file(WRITE "${ENTRY}" "${TEXT}")
]])

# `cpack` in the build folder: a Debian package of what is installed, below /usr. With SOURCE_DATE_EPOCH the same build gives the same
# package, whatever the umask: only the modes of the three files that a package consists of, which nobody looks at, are the umask's.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quillmend)
set(CPACK_PACKAGE_VENDOR Vordenworks)
set(CPACK_PACKAGE_CONTACT "Vordenworks <support@vordenworks.example>")
set(CPACK_PACKAGE_HOMEPAGE_URL ${QUILLMEND_WEB_SITE})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "repair Apple Compressor and its distributed service Qmaster")
set(CPACK_PACKAGE_DESCRIPTION "Quillmend mends Compressor (3.0.x, 3.5.x, 4.x) and Qmaster on a workstation
when encoding stops: it closes Compressor, stops Qmaster, moves preferences,
layouts, caches, spool data and history that went bad to the trash, checks and
repairs the installed components, checks the computer's name, starts Qmaster
again, and says every step.
.
It works in a window, and without one under a scheduler. Nothing is deleted.")
set(CPACK_STRIP_FILES ON)

# What writes a path into a file is to write the one that it will have, and not that of the folder the package is made in.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/DebianDocumentation.cmake)
set(CPACK_QUILLMEND_SOURCE ${PROJECT_SOURCE_DIR})

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
foreach(script postinst prerm postrm)
  list(APPEND CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/debian/${script})
endforeach()
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# What is linked is found; libraries that are loaded and programs that are started have to be named. Without expat no property list
# is read. The others are for the window: keys, a password, what is opened, notifications.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libexpat1, libsystemd0")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS
    "default-dbus-session-bus | dbus-session-bus, libxcb1, libxkbcommon-x11-0, libxkbcommon0, sudo, xdg-utils")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "bash-completion, qt6-wayland")
include(CPack)

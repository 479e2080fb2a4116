# What a bundle on a Mac has besides: an icon, and a signature. The system runs no program without one on Apple's
# own processors; "-" signs for this computer alone.
set(QUILLMEND_SIGNING_IDENTITY "-" CACHE STRING "Identity for codesign(1); \"-\" signs for this computer alone")
set(QUILLMEND_ENTITLEMENTS ${PROJECT_SOURCE_DIR}/resources/Quillmend.entitlements)

# The hardened runtime, which a program needs to be notarised, asks for a certificate.
set(SIGN codesign --force --sign ${QUILLMEND_SIGNING_IDENTITY})
if(NOT QUILLMEND_SIGNING_IDENTITY STREQUAL "-")
  list(APPEND SIGN --options runtime --timestamp)
endif()

# From the inside out: a signature covers those of what lies inside. Everything that is built comes first.
function(quillmend_sign_bundle)
  get_target_property(parts bundle MANUALLY_ADDED_DEPENDENCIES)
  set(commands)
  foreach(part ${parts})
    get_target_property(kind ${part} TYPE)
    if(kind MATCHES "EXECUTABLE|MODULE_LIBRARY" AND NOT part STREQUAL "Quillmend")
      list(APPEND commands COMMAND ${SIGN} $<TARGET_FILE:${part}>)
    endif()
  endforeach()
  add_custom_target(signed_bundle ALL ${commands}
    COMMAND ${SIGN} --entitlements ${QUILLMEND_ENTITLEMENTS} ${QUILLMEND_BUNDLE}
    COMMENT "Signing ${QUILLMEND_BUNDLE}" VERBATIM)
  add_dependencies(signed_bundle bundle)
endfunction()

# An icon from the pictures that `drawicon` draws in `folder`: FOLDER/<size>x<size>/apps/NAME.png.
function(quillmend_icon folder name)
  set(icons ${CMAKE_BINARY_DIR}/Quillmend.iconset)
  set(icon ${QUILLMEND_BUNDLE}/Contents/Resources/Quillmend.icns)
  set(copies)
  foreach(size 16 32 128 256 512)
    list(APPEND copies COMMAND ${CMAKE_COMMAND} -E copy ${folder}/${size}x${size}/apps/${name}.png ${icons}/icon_${size}x${size}.png)
  endforeach()
  add_custom_command(OUTPUT ${icon}
    COMMAND $<TARGET_FILE:drawicon> ${PROJECT_SOURCE_DIR}/resources/Quillmend.svg ${folder} ${name}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${icons} ${QUILLMEND_BUNDLE}/Contents/Resources
    ${copies}
    COMMAND iconutil --convert icns --output ${icon} ${icons}
    DEPENDS drawicon ${PROJECT_SOURCE_DIR}/resources/Quillmend.svg
    VERBATIM)
  add_custom_target(icon DEPENDS ${icon})
  add_dependencies(bundle icon)
endfunction()

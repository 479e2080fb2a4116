# Programs of the bundle. They start often and run as root, so they carry the C++ library in themselves:
# starting one maps the C library and nothing else that they do not need.
add_custom_target(bundle)

function(quillmend_bundle_program target folder)
  set_target_properties(${target} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${QUILLMEND_BUNDLE}/Contents/${folder})
  add_dependencies(bundle ${target})
  # A Mac's system has one C++ library for all.
  if(NOT APPLE AND NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
    target_link_options(${target} PRIVATE -static-libstdc++ -static-libgcc -Wl,--as-needed)
  endif()
  # The loader looks there before it looks where LD_LIBRARY_PATH says (DT_RUNPATH would come after that). $LIB is the
  # system's own word for its folder of libraries.
  if(NOT APPLE AND NOT folder STREQUAL "MacOS")
    target_link_options(${target} PRIVATE -Wl,--disable-new-dtags)
    set_target_properties(${target} PROPERTIES BUILD_RPATH "/\$LIB;/usr/\$LIB")
  endif()
endfunction()

# The backend's Objective-C++: the same target and C library, with the headers of GNUstep for Foundation and AppKit and a
# Mac's runtime (objective-c/, written here). A selector that nobody declares is an error.
set(MAC_GNUSTEP /usr/include/GNUstep)
if(NOT EXISTS ${MAC_GNUSTEP}/AppKit/AppKit.h)
  message(STATUS "The Mac's Objective-C++ is not compiled: GNUstep's headers are missing")
  set(MAC_IS_INCOMPLETE TRUE)
  return()
endif()
set(MAC_OBJECTIVE_C_FLAGS ${MAC_FLAGS}
  -Werror=objc-method-access -fobjc-exceptions -fblocks
  -DGNUSTEP -DNeXT_RUNTIME=1 -DGNUSTEP_BASE_LIBRARY=1 -DGNU_GUI_LIBRARY=1 -D_NATIVE_OBJC_EXCEPTIONS
  -isystem ${CMAKE_CURRENT_SOURCE_DIR}/objective-c -isystem ${MAC_GNUSTEP})

file(GLOB MAC_OBJECTIVE_C_SOURCES RELATIVE ${PROJECT_SOURCE_DIR} CONFIGURE_DEPENDS
  ${PROJECT_SOURCE_DIR}/platform/macos/*.mm)
set(MAC_PLAIN_FLAGS ${MAC_FLAGS})
set(MAC_FLAGS ${MAC_OBJECTIVE_C_FLAGS})
foreach(source ${MAC_OBJECTIVE_C_SOURCES})
  mac_source(${source})
endforeach()
mac_refusal(UnknownSelector.mm "instance method '-openFileWithoutAsking:' not found")
mac_refusal(WrongArgument.mm "cannot initialize a parameter of type 'NSString \\*'")
set(MAC_FLAGS ${MAC_PLAIN_FLAGS})
list(APPEND MAC_SOURCES ${MAC_OBJECTIVE_C_SOURCES})

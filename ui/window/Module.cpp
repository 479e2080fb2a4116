#include "platform/WindowModule.h"
#include "ui/window/Application.h"

/// The module's entry; everything else in it is hidden.
extern "C" __attribute__((visibility("default"))) int QuillmendWindowMain(int argc, char** argv,
                                                                          platform::WindowHost* host,
                                                                          outlets::InterfaceOwner* owner) {
  return window::runApplication(argc, argv, *host, *owner);
}

#include <cstdlib>
#include <fstream>

/// A window module for tests: writes its arguments to the file that WINDOW_MODULE_RECORD names, answers 42.
extern "C" int QuillmendWindowMain(int argc, char** argv) {
  std::ofstream record(std::getenv("WINDOW_MODULE_RECORD"));
  for (int index = 0; index < argc; ++index) record << '[' << argv[index] << ']';
  return argv[argc] == nullptr ? 42 : 0;
}

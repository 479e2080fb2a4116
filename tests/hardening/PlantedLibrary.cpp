// What a user puts where a program of root's might look for a library.
#include <sys/stat.h>

namespace {

[[gnu::constructor]] void leaveMark() {
  ::mkdir("/planted-was-loaded", 0700);
}

}  // namespace

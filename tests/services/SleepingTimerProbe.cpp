// Runs a tool under a time-out (seconds) and ends, with its static objects destroyed, that many milliseconds
// later.
#include <chrono>
#include <cstdlib>
#include <string>

#include "platform/Platform.h"
#include "services/TGTask.h"

int main(int count, char** arguments) {
  if (count != 3) return EXIT_FAILURE;
  const TGTask::Interval timeout(std::stod(arguments[1]));
  const int code = TGTask::terminationCodeFromTask("/bin/sh", {{"-c", "exit 42"}}, timeout);
  platform::current().clock.sleep(std::chrono::milliseconds(std::stol(arguments[2])));
  std::exit(code);
}

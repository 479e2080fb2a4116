#include <unistd.h>

/// Says that it runs, by one byte on standard output, and waits for a signal that ends it, one minute at
/// most.
int main() {
  if (write(STDOUT_FILENO, "+", 1) != 1) return 1;
  alarm(60);
  pause();
  return 0;
}

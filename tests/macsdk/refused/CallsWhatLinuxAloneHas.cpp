#include <unistd.h>

int pipeOfLinux(int* ends) {
  return pipe2(ends, 0);
}

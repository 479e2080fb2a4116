#include <cstdio>
#include <exception>

#include "bench/Ratio.h"

/// usage: help_ratio QUILLMEND PRINT_HELP_TEXT
/// How long "Quillmend -help" takes against a program in C that prints the same.
int main(int argc, char** argv) try {
  if (argc != 3) {
    std::fprintf(stderr, "usage: help_ratio QUILLMEND PRINT_HELP_TEXT\n");
    return 64;
  }
  constexpr int times = 501;
  const bench::Comparison result = bench::compare({argv[1], "-help"}, {argv[2]}, times);
  std::printf("-help                 %8.0f us, %5ld KiB\n", result.subject * 1e6, result.subjectMemory);
  std::printf("C program, same text  %8.0f us, %5ld KiB\n", result.peer * 1e6, result.peerMemory);
  std::printf("ratio                 %8.2f    (median of %d, at most 1.50; memory at most 8192 KiB)\n",
              result.ratio, times);
  return 0;
} catch (const std::exception& failure) {
  std::fprintf(stderr, "%s\n", failure.what());
  return 1;
}

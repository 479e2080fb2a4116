#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace bench {

/// What one run of a program cost.
struct Cost {
  std::chrono::duration<double> wall{};
  long peakMemory = 0;  ///< kilobytes, ru_maxrss of getrusage(2)
};

/// Runs a program to its end with its output in that file. Throws std::runtime_error when it cannot be run or
/// fails.
Cost run(const std::vector<std::string>& commandLine, const std::string& output = "/dev/null");

/// The middle value; of an even number of values the mean of the two middle ones. REQUIRES not empty.
[[nodiscard]] double median(std::vector<double> values);

/// What a work took, in seconds.
[[nodiscard]] double secondsOf(const std::function<void()>& work);

/// The medians of works that answer what they took, in seconds. Done in turn, and in the other order the next
/// time, so that neither always finds what the other has left to be written; both once before, uncounted, so
/// that what is read comes from memory for both. Throws std::runtime_error between two of them when the
/// program has been told to end, so that what it has made is removed.
struct Medians {
  double subject = 0;
  double peer = 0;
};
[[nodiscard]] Medians compareInTurn(const std::function<double()>& subject,
                                    const std::function<double()>& peer, int times);

/// One row of the table that bench/compare prints: ours against its peer. `measure` is called for each size
/// that is asked for, makes what it needs, and throws what is wrong where the work was not truly done.
struct Row {
  std::string name;
  std::function<Medians(std::size_t size, int times)> measure;
};

/// The main function of a program that measures rows.
///
/// usage: PROGRAM [--times N] ROW SIZE...
///
/// Prints a line for each size as soon as it is measured (N times each, five without the option), its parts
/// separated by blanks:
///
///     measured ROW SIZE SECONDS-OF-OURS SECONDS-OF-THE-PEER RATIO
///
/// Status 1, and why on standard error, where something could not be measured; 64 for a wrong command line.
[[nodiscard]] int measureRows(int argc, char** argv, const std::vector<Row>& rows);

}  // namespace bench

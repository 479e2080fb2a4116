#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace bench {

/// What one run of a program cost.
struct Cost {
  std::chrono::duration<double> wall{};
  long peakMemory = 0;  ///< kilobytes, ru_maxrss of getrusage(2)
};

/// Runs a program to its end with its output discarded. Throws std::runtime_error when it cannot be run or
/// fails.
[[nodiscard]] Cost run(const std::vector<std::string>& commandLine);

/// The middle value; of an even number of values the mean of the two middle ones. REQUIRES not empty.
[[nodiscard]] double median(std::vector<double> values);

/// Both programs in turn, that many times; the medians and their ratio.
struct Comparison {
  double subject = 0;  ///< seconds
  double peer = 0;     ///< seconds
  double ratio = 0;
  long subjectMemory = 0;  ///< kilobytes, the largest seen
  long peerMemory = 0;
};
[[nodiscard]] Comparison compare(const std::vector<std::string>& subject,
                                 const std::vector<std::string>& peer, int times);

/// The medians of works that answer what they took, in seconds. Done in turn, and in the other order the next
/// time, so that neither always finds what the other has left to be written; the peer's first, uncounted, so
/// that what is read comes from memory for both.
struct Medians {
  double subject = 0;
  double peer = 0;
};
[[nodiscard]] Medians compareInTurn(const std::function<double()>& subject,
                                    const std::function<double()>& peer, int times);

}  // namespace bench

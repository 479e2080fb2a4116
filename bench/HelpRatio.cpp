#include <cstddef>
#include <fstream>
#include <iterator>
#include <string>

#include "bench/Ground.h"
#include "bench/Ratio.h"

namespace {

constexpr long kMostMemory = 8192;  ///< kilobytes

std::string outputOf(const bench::Ground& ground, const std::vector<std::string>& command) {
  const std::string file = ground / "output";
  const bench::Cost cost = bench::run(command, file);
  bench::require(cost.peakMemory <= kMostMemory, command.front() + " takes more than 8 MiB of memory");
  std::ifstream stream(file);
  return {std::istreambuf_iterator<char>(stream), {}};
}

double startAll(const std::vector<std::string>& command, std::size_t starts) {
  double seconds = 0;
  for (std::size_t number = 0; number < starts; ++number) seconds += bench::run(command).wall.count();
  return seconds;
}

/// That many starts of each.
bench::Medians measure(std::size_t starts, int times) {
  const std::vector<std::string> ours = {bench::builtBundle("Contents/MacOS/Quillmend"), "-help"};
  const std::vector<std::string> theirs = {bench::ownFolder() / "print_help_text"};
  const bench::Ground ground;
  const std::string text = outputOf(ground, ours);
  bench::require(!text.empty() && text == outputOf(ground, theirs), "the two print different texts");
  return bench::compareInTurn([&] { return startAll(ours, starts); },
                              [&] { return startAll(theirs, starts); }, times);
}

}  // namespace

/// How long "Quillmend -help" takes against a program in C that prints the same; how to call it says
/// bench::measureRows().
int main(int argc, char** argv) {
  return bench::measureRows(argc, argv, {{"help", measure}});
}

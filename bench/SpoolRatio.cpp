#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>

#include "bench/Ground.h"
#include "bench/Ratio.h"
#include "workstation/Components.h"
#include "workstation/Layout.h"
#include "workstation/Records.h"
#include "workstation/TemporaryVolume.h"
#include "workstation/Visit.h"

namespace {

using std::chrono::duration;
using std::chrono::microseconds;
using Seconds = duration<double>;
using namespace std::chrono_literals;

struct Pause {
  const char* after;
  microseconds length;
};

/// The pauses of a repair of 3.5 and 4.0 in good order, with no Compressor open, in the order of the run.
/// They are the repair's only way of giving the tools that it starts their time.
constexpr Pause pauses[] = {
    {"3.5: cancelling the jobs", 600us}, {"3.5: stopping sharing", 1s},   {"3.5: killtool", 1500us},
    {"4.0: cancelling the jobs", 600us}, {"4.0: stopping sharing", 1s},   {"4.0: killtool", 1500us},
    {"the computer's name", 250us},      {"3.5: loading the daemon", 1s}, {"3.5: the reset", 2s},
    {"3.5: starting sharing", 600us},    {"4.0: loading the daemon", 1s}, {"4.0: the reset", 600us},
    {"4.0: starting sharing", 600us}};

Seconds prescribed() {
  Seconds sum{0};
  for (const Pause& pause : pauses) sum += pause.length;
  return sum;
}

/// From the start of the program's process to its end.
Seconds wallTime(const workstation::Volume& volume) {
  std::chrono::nanoseconds begin{0};
  std::chrono::nanoseconds end{0};
  for (const auto& line : workstation::records(volume, workstation::visitsFile)) {
    if (line.kind == "begin") begin = line.monotonic;
    if (line.kind == "exit") end = line.monotonic;
  }
  if (end <= begin) throw std::runtime_error("the repair left no record of its time");
  return end - begin;
}

bool isEmptied(const workstation::Volume& volume) {
  for (const bool four : {false, true}) {
    for (const auto& folder : workstation::spoolFolders(four)) {
      if (!std::filesystem::is_empty(volume.host(folder))) return false;
    }
  }
  return true;
}

/// One repair of a fresh workstation.
double repair(const std::string& bundle, std::size_t spoolFiles) {
  const workstation::TemporaryVolume sample(
      {.compressors = {{"3.5.3"}, {"4.0.7"}}, .logFolder = true, .spoolFiles = spoolFiles});
  workstation::VisitOptions options;
  options.bundle = bundle;
  options.notifications = workstation::NotificationAnswer::expire;
  ::sync();  // what was written to make the sample is not the repair's to wait for
  const auto visit = workstation::visit(
      sample, {"/Applications/Quillmend.app/Contents/MacOS/Quillmend", "-repair"}, options);
  if (visit.status != 0) throw std::runtime_error("the repair failed: " + visit.error);
  if (!isEmptied(sample)) throw std::runtime_error("the repair left spool files: " + visit.error);
  return wallTime(sample).count();
}

bench::Medians measure(std::size_t spoolFiles, int times) {
  bench::requireRoot();
  const std::string bundle = bench::builtBundle();
  return bench::compareInTurn([&] { return repair(bundle, spoolFiles); }, [] { return prescribed().count(); },
                              times);
}

int listPauses() {
  for (const Pause& pause : pauses) {
    std::printf("%-28s %9.4f s\n", pause.after, Seconds(pause.length).count());
  }
  std::printf("%-28s %9.4f s\n", "together", prescribed().count());
  return 0;
}

}  // namespace

/// How long a repair of Compressor 3.5 and 4.0 takes, with that many spool files, against the pauses that it
/// cannot do without; how to call it says bench::measureRows(). Needs root, and bubblewrap.
///
/// usage: spool_ratio --pauses     lists the pauses
int main(int argc, char** argv) {
  if (argc == 2 && std::string_view(argv[1]) == "--pauses") return listPauses();
  return bench::measureRows(argc, argv, {{"repair", measure}});
}

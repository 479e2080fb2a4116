#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "tests/hardening/AttackedComputer.h"

namespace hardening {

/// One entry that is exchanged for a symbolic link; "*" as name for everything in the folder.
struct Target {
  std::string folder;
  std::string name;
  std::string leadsTo;
};
inline void PrintTo(const Target& target, std::ostream* stream) {
  *stream << target.folder << "/" << target.name;
}

/// For good, or for one call.
enum class Stays { yes, no };

/// Exchanges on asking, and back again, at the latest at its end.
class Swap {
 public:
  Swap(const AttackedComputer& computer, const Target& target) : computer_(computer), target_(target) {}
  ~Swap() { undo(); }
  Swap(const Swap&) = delete;
  Swap& operator=(const Swap&) = delete;

  void make();
  void undo();

 private:
  void exchange(const std::string& path);

  const AttackedComputer& computer_;
  const Target& target_;
  std::vector<std::string> made_;
};

}  // namespace hardening

#include "tests/hardening/Swap.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>

namespace hardening {
namespace {

namespace fs = std::filesystem;

std::string away(const std::string& path) {
  return path + ".away";
}

}  // namespace

void Swap::make() {
  if (target_.name != "*") return exchange(computer_.path(target_.folder) + "/" + target_.name);
  std::error_code missing;
  for (const auto& entry : fs::directory_iterator(computer_.path(target_.folder), missing)) {
    exchange(entry.path());
  }
}

void Swap::undo() {
  for (const std::string& path : made_) {
    if (::renameat2(AT_FDCWD, away(path).c_str(), AT_FDCWD, path.c_str(), RENAME_EXCHANGE) == 0) {
      ::unlink(away(path).c_str());
    } else if (fs::is_symlink(fs::symlink_status(path))) {
      ::unlink(path.c_str());
    }
  }
  made_.clear();
}

void Swap::exchange(const std::string& path) {
  const std::string link = away(path);
  if (::symlink(target_.leadsTo.c_str(), link.c_str()) != 0) return;
  static_cast<void>(::lchown(link.c_str(), AttackedComputer::kAlice, AttackedComputer::kAlice));
  const bool done = ::renameat2(AT_FDCWD, link.c_str(), AT_FDCWD, path.c_str(), RENAME_EXCHANGE) == 0 ||
                    ::rename(link.c_str(), path.c_str()) == 0;
  if (done) made_.push_back(path);
  if (!done) ::unlink(link.c_str());
}

}  // namespace hardening

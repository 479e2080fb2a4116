#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace bench {

/// A folder of a run's own, removed at its end; below the folder for temporary files (TMPDIR) where no other
/// is given. Its path has no links in it.
class Ground {
 public:
  /// Throws std::runtime_error when there cannot be one in that folder.
  explicit Ground(const std::string& below = std::filesystem::temp_directory_path())
      : path_(std::filesystem::canonical(below).string() + "/quillmend-bench-XXXXXX") {
    if (::mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no folder below " + below);
  }
  ~Ground() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  Ground(const Ground&) = delete;
  Ground& operator=(const Ground&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

/// The folder that this program was built into.
[[nodiscard]] inline std::filesystem::path ownFolder() {
  return std::filesystem::read_symlink("/proc/self/exe").parent_path();
}

/// The bundle of the same build, or a part of it.
[[nodiscard]] inline std::string builtBundle(const std::string& part = "") {
  const std::string path = (ownFolder().parent_path() / "Quillmend.app" / part).string();
  if (!std::filesystem::exists(path)) throw std::runtime_error("not built: " + path);
  return path;
}

inline void requireRoot() {
  if (::geteuid() != 0) throw std::runtime_error("needs root");
}

/// Throws what is wrong unless the work was done as it should be.
inline void require(bool isDone, const std::string& what) {
  if (!isDone) throw std::runtime_error(what);
}

}  // namespace bench

#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace bench {

/// A folder of a run's own, removed at its end.
class Ground {
 public:
  /// Throws std::runtime_error when there cannot be one in that folder.
  explicit Ground(const std::string& below) : path_(below + "/quillmend-bench-XXXXXX") {
    if (::mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no folder below " + below);
  }
  ~Ground() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  Ground(const Ground&) = delete;
  Ground& operator=(const Ground&) = delete;

  [[nodiscard]] std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

}  // namespace bench

#pragma once

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace support {

/// The content of a file, by its path; "" where there is none that can be read.
[[nodiscard]] inline std::string contentOf(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

/// A folder of the test's own on the real disk, gone with the object; its path has no links in it.
class TemporaryFolder {
 public:
  TemporaryFolder() : TemporaryFolder(std::filesystem::temp_directory_path().string()) {}
  explicit TemporaryFolder(const std::string& below) {
    std::string pattern = std::filesystem::canonical(below).string() + "/quillmend-test-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder");
    path_ = pattern;
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] std::string operator/(const std::string& relative) const { return path_ + "/" + relative; }

  void makeAccessibleToAll() const { ::chmod(path_.c_str(), 0755); }

  /// Makes a folder, or a file with the folders above it; answers its path.
  [[nodiscard]] std::string folder(const std::string& relative) const {
    std::filesystem::create_directories(*this / relative);
    return *this / relative;
  }
  std::string file(const std::string& relative, const std::string& content = "") const {
    std::filesystem::create_directories(std::filesystem::path(*this / relative).parent_path());
    std::ofstream(*this / relative, std::ios::binary) << content;
    return *this / relative;
  }
  [[nodiscard]] std::string content(const std::string& relative) const { return contentOf(*this / relative); }

 private:
  std::string path_;
};

/// A copy of a program that every account can start, wherever it was built; one for the whole test program.
inline std::string programForAll(const std::string& program) {
  static const TemporaryFolder folder;
  const std::string copy = folder / std::filesystem::path(program).filename().string();
  if (!std::filesystem::exists(copy)) {
    folder.makeAccessibleToAll();
    std::filesystem::copy_file(program, copy);
  }
  return copy;
}

}  // namespace support

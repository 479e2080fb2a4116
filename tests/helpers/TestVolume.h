#pragma once

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "helpers/Surroundings.h"
#include "helpers/Tool.h"

namespace helpers {

/// A folder of the test's own that plays "/": with a console user alice, another user bob, and root.
/// Everything is removed at its end, mounts first.
class TestVolume {
 public:
  TestVolume() : top_(makeTop()) {
    enterOwnMountNamespace();
    chmod(top_.c_str(), 0755);
    for (const char* folder : {"Users/alice", "Users/bob", "var/root"}) makeFolder(folder);
    own("Users/alice", kAlice);
    own("Users/bob", kBob);
  }
  ~TestVolume() {
    for (auto mount = mounts_.rbegin(); mount != mounts_.rend(); ++mount) umount2(mount->c_str(), MNT_DETACH);
    std::error_code ignored;
    std::filesystem::remove_all(top_, ignored);
  }
  TestVolume(const TestVolume&) = delete;
  TestVolume& operator=(const TestVolume&) = delete;

  static constexpr uid_t kAlice = 4201;
  static constexpr uid_t kBob = 4202;
  static constexpr gid_t kAdministrators = 80;

  [[nodiscard]] std::string path(const std::string& place) const { return top_ + "/" + place; }

  void makeFolder(const std::string& place, mode_t mode = 0755) const {
    std::filesystem::create_directories(path(place));
    chmod(path(place).c_str(), mode);
  }
  void makeFile(const std::string& place, const std::string& text = "text", mode_t mode = 0644) const {
    std::filesystem::create_directories(std::filesystem::path(path(place)).parent_path());
    std::ofstream(path(place)) << text;
    chmod(path(place).c_str(), mode);
  }
  void makeLink(const std::string& target, const std::string& place) const {
    std::filesystem::create_symlink(target, path(place));
  }
  /// Own user's files stay the test's own where it does not run as root.
  void own(const std::string& place, uid_t user) const {
    if (lchown(path(place).c_str(), user, user) != 0 && geteuid() == 0) throw std::runtime_error("chown");
  }
  /// Another file system at that place; REQUIRES root.
  void mountVolume(const std::string& place) {
    makeFolder(place);
    if (mount("none", path(place).c_str(), "tmpfs", 0, "mode=0755") != 0) {
      throw std::runtime_error("mount");
    }
    mounts_.push_back(path(place));
  }
  /// REQUIRES a volume that was mounted there.
  void makeReadOnly(const std::string& place) const {
    if (mount(nullptr, path(place).c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0) {
      throw std::runtime_error("remount");
    }
  }

  /// An overlay of those layers (mount options) at that place; false where the system has none.
  bool mountOverlay(const std::string& place, const std::string& layers) {
    if (mount("none", path(place).c_str(), "overlay", 0, layers.c_str()) != 0) return false;
    mounts_.push_back(path(place));
    return true;
  }

  [[nodiscard]] bool exists(const std::string& place) const {
    struct stat status {};
    return lstat(path(place).c_str(), &status) == 0;
  }
  [[nodiscard]] struct stat status(const std::string& place) const {
    struct stat status {};
    if (lstat(path(place).c_str(), &status) != 0) throw std::runtime_error("no " + place);
    return status;
  }
  [[nodiscard]] mode_t mode(const std::string& place) const { return status(place).st_mode & 07777U; }
  [[nodiscard]] std::string read(const std::string& place) const {
    std::ifstream file(path(place));
    return {std::istreambuf_iterator<char>(file), {}};
  }
  /// The names in a folder, sorted; none where it does not exist.
  [[nodiscard]] std::vector<std::string> names(const std::string& place) const {
    std::vector<std::string> names;
    std::error_code missing;
    for (const auto& entry : std::filesystem::directory_iterator(path(place), missing)) {
      names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  [[nodiscard]] Surroundings surroundings() const {
    Surroundings made;
    made.root.reset(open(top_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    made.accounts = {{"root", 0, 0, "/var/root"},
                     {"daemon", 1, 1, "/usr/sbin"},
                     {"alice", kAlice, kAlice, "/Users/alice"},
                     {"bob", kBob, kBob, "/Users/bob"}};
    made.administrators = [] { return std::optional<gid_t>(kAdministrators); };
    made.consoleAccount = [] { return std::optional(Account{"alice", kAlice, kAlice, "/Users/alice"}); };
    made.now = [] { return foundation::Date::fromUnixTime(1'700'000'000); };
    return made;
  }

 private:
  /// Mounts of a test are seen by nobody else and end with it. Before anything is opened: a descriptor keeps
  /// showing the mounts of the namespace that it was opened in.
  static void enterOwnMountNamespace() {
    static const bool entered =
        unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    if (!entered && geteuid() == 0) throw std::runtime_error("unshare");
  }

  static std::string makeTop() {
    const char* folder = std::getenv("TMPDIR");
    std::string top = std::string(folder == nullptr ? "/tmp" : folder) + "/quillmend-helpers-XXXXXX";
    if (mkdtemp(top.data()) == nullptr) throw std::runtime_error("mkdtemp");
    return std::filesystem::canonical(top);
  }

  std::string top_;
  std::vector<std::string> mounts_;
};

/// A Report whose lines a test can read.
class RecordedReport {
 public:
  RecordedReport() : file_(std::tmpfile()), report_("tool", fileno(file_)) {}
  ~RecordedReport() { std::fclose(file_); }
  RecordedReport(const RecordedReport&) = delete;
  RecordedReport& operator=(const RecordedReport&) = delete;

  operator Report&() { return report_; }  // NOLINT: implicit, so that it is passed like one
  [[nodiscard]] std::string text() const {
    std::string text(65536, '\0');
    const ssize_t length = pread(fileno(file_), text.data(), text.size(), 0);
    text.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
    return text;
  }
  [[nodiscard]] auto lines() const {
    const std::string all = text();
    return std::count(all.begin(), all.end(), '\n');
  }

 private:
  std::FILE* file_;
  Report report_;
};

#define QUILLMEND_NEEDS_ROOT() \
  if (geteuid() != 0) GTEST_SKIP() << "needs root: owners and mounts are changed"

}  // namespace helpers

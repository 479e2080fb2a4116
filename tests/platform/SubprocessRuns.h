#pragma once

#include <gmock/gmock.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/Subprocesses.h"
#include "platform/posix/PosixMainThread.h"

namespace platform {

inline const char* const kProbe = SUBPROCESS_PROBE;

/// How many entries a folder of /proc has.
inline std::size_t countEntries(const std::string& folder) {
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

/// The states of this process's children, "Z" for a zombie.
inline std::string childStates() {
  std::string states;
  std::ifstream children("/proc/self/task/" + std::to_string(::getpid()) + "/children");
  for (pid_t child = 0; children >> child;) {
    std::ifstream status("/proc/" + std::to_string(child) + "/stat");
    std::string ignored;
    std::string state;
    status >> ignored >> ignored >> state;
    states += state;
  }
  return states;
}

/// Whether a condition comes true within ten seconds.
template <typename Condition>
bool eventually(Condition condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

inline std::vector<std::string> linesOf(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

/// Runs children, which a test's own subprocesses make.
class SubprocessRuns : public ::testing::Test {
 protected:
  virtual Subprocesses& maker() = 0;

  std::shared_ptr<Subprocess> make(const std::string& path, std::vector<std::string> arguments = {}) {
    SubprocessOptions options;
    options.launchPath = path;
    options.arguments = std::move(arguments);
    options.standardInput = Stream::nullDevice;
    options.standardOutput = Stream::pipe;
    options.standardError = Stream::pipe;
    return maker().create(std::move(options));
  }
  std::shared_ptr<Subprocess> shell(const std::string& script) { return make("/bin/sh", {"-c", script}); }

  static std::string outputOf(Subprocess& child) {
    std::string output;
    for (std::string piece = child.availableOutput(); !piece.empty(); piece = child.availableOutput()) {
      output += piece;
    }
    return output;
  }
  std::string run(const std::string& path, std::vector<std::string> arguments) {
    const auto child = make(path, std::move(arguments));
    child->launch();
    std::string output = outputOf(*child);
    child->waitUntilExit();
    return output;
  }

  PosixMainThread mainThread;
};

}  // namespace platform

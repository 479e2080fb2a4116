#include "platform/linux/LinuxChildren.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace platform {
namespace {

constexpr std::size_t kMebibyte = 1UL << 20;

/// Memory that nobody has touched yet.
struct Mapping {
  explicit Mapping(std::size_t size)
      : bytes(size),
        memory(::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) {}
  ~Mapping() { ::munmap(memory, bytes); }
  Mapping(const Mapping&) = delete;
  Mapping& operator=(const Mapping&) = delete;
  [[nodiscard]] char* start() const { return static_cast<char*>(memory); }

  std::size_t bytes;
  void* memory;
};

/// The flags of the mapping in which the byte lies: the line VmFlags of proc_pid_smaps(5).
std::string flagsAt(const char* byte) {
  std::ifstream maps("/proc/self/smaps");
  bool isInside = false;
  for (std::string line; std::getline(maps, line);) {
    std::istringstream words(line);
    std::uintptr_t from = 0;
    std::uintptr_t to = 0;
    char dash = 0;
    if (words >> std::hex >> from >> dash >> to && dash == '-') {
      const auto address = reinterpret_cast<std::uintptr_t>(byte);
      isInside = from <= address && address < to;
    }
    if (isInside && line.starts_with("VmFlags:")) return line + " ";
  }
  return "";
}

bool isInLargePages(const char* byte) {
  return flagsAt(byte).find(" hg ") != std::string::npos;
}

TEST(LinuxChildrenTest, MuchMemoryComesInLargePages) {
  if (!std::filesystem::exists("/sys/kernel/mm/transparent_hugepage")) GTEST_SKIP() << "no huge pages";
  const Mapping mapping(64 * kMebibyte);
  useLargePages(mapping.start() + 16, 64 * kMebibyte - 16);
  EXPECT_TRUE(isInLargePages(mapping.start() + 32 * kMebibyte));
}

TEST(LinuxChildrenTest, WhatTheAllocatorMayKeepIsLeftAsItIs) {
  const Mapping mapping(64 * kMebibyte);
  useLargePages(mapping.start(), 31 * kMebibyte);
  EXPECT_NE(flagsAt(mapping.start() + 16 * kMebibyte), "");
  EXPECT_FALSE(isInLargePages(mapping.start() + 16 * kMebibyte));
}

}  // namespace
}  // namespace platform

#include "tests/hardening/OwnProcesses.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>

namespace hardening {
namespace {

void run(const std::function<void(const AttackedComputer&)>& part) {
  const AttackedComputer computer;
  EXPECT_EQ(::mount("proc", computer.path("/proc").c_str(), "proc", 0, nullptr), 0);
  if (!::testing::Test::HasFailure()) part(computer);
}

int becomeFirst(const std::function<void(const AttackedComputer&)>& part) {
  const pid_t first = ::fork();
  if (first == 0) {
    run(part);
    std::fflush(nullptr);
    ::_exit(::testing::Test::HasFailure() ? 1 : 0);
  }
  int status = -1;
  ::waitpid(first, &status, 0);
  return status == 0 ? 0 : 1;
}

}  // namespace

void amongOwnProcesses(const std::function<void(const AttackedComputer&)>& part) {
  std::fflush(nullptr);
  const pid_t outer = ::fork();
  if (outer == 0) ::_exit(::unshare(CLONE_NEWPID) == 0 ? becomeFirst(part) : 1);
  int status = -1;
  ASSERT_EQ(::waitpid(outer, &status, 0), outer);
  EXPECT_EQ(status, 0) << "the part among processes of its own failed";
}

std::string installTarget(const AttackedComputer& computer, const std::string& place) {
  const std::string path = computer.path(place);
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::filesystem::copy_file(TARGET_PROGRAM, path, std::filesystem::copy_options::overwrite_existing);
  return path;
}

}  // namespace hardening

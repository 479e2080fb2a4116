#pragma once

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "platform/posix/Accounts.h"
#include "platform/posix/UniqueDescriptor.h"
#include "tests/support/ProgramRun.h"

namespace support {

/// An account of the test's own with a password, removed with the object. Needs root, useradd and chpasswd.
/// Tests that make accounts wait for one another.
class TestAccount {
 public:
  explicit TestAccount(const std::string& password, const std::string& home = "/home/quillmend-test")
      : lock_(::open("/run/quillmend-test-accounts.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0600)),
        name_("qmtest" + std::to_string(::getpid())) {
    ::flock(lock_.get(), LOCK_EX);
    if (runProgram({"/usr/sbin/useradd", "-M", "-N", "-d", home, "-s", "/bin/sh", name_}).status != 0) {
      throw std::runtime_error("cannot make an account");
    }
    setPassword(password);
    id_ = platform::accountNamed(name_).value().user;
  }
  ~TestAccount() {
    ::unlink(rules().c_str());
    ::unlink(options().c_str());
    ::unlink(("/run/sudo/ts/" + name_).c_str());
    ::unlink(("/var/lib/sudo/lectured/" + name_).c_str());
    std::filesystem::remove_all("/tmp/runtime-" + name_);  // which the toolkit makes for it
    static_cast<void>(runProgram({"/usr/sbin/userdel", name_}));
  }
  TestAccount(const TestAccount&) = delete;
  TestAccount& operator=(const TestAccount&) = delete;

  [[nodiscard]] const std::string& name() const { return name_; }
  [[nodiscard]] uid_t id() const { return id_; }

  /// Gives it a line in sudoers; what follows the name, for example "ALL=(ALL:ALL) ALL".
  void allow(const std::string& rule) const { write(rules(), name_ + " " + rule); }
  /// Gives it options of sudoers, for example "timestamp_timeout=0, lecture=always".
  void setOptions(const std::string& list) const { write(options(), "Defaults:" + name_ + " " + list); }
  /// As an administrator ends an account: its password is still the right one.
  void expire() const {
    if (runProgram({"/usr/sbin/usermod", "-e", "1", name_}).status != 0) {
      throw std::runtime_error("cannot end an account");
    }
  }

 private:
  /// The password goes in on standard input: an account's name and password are nobody else's business.
  void setPassword(const std::string& password) const {
    FILE* const tool = ::popen("/usr/sbin/chpasswd", "w");
    if (tool == nullptr) throw std::runtime_error("cannot set a password");
    std::fprintf(tool, "%s:%s\n", name_.c_str(), password.c_str());
    if (::pclose(tool) != 0) throw std::runtime_error("cannot set a password");
  }
  static void write(const std::string& file, const std::string& line) {
    std::ofstream(file) << line << "\n";
    ::chmod(file.c_str(), 0440);
  }
  [[nodiscard]] std::string rules() const { return "/etc/sudoers.d/" + name_; }
  [[nodiscard]] std::string options() const { return rules() + "_options"; }

  platform::UniqueDescriptor lock_;
  std::string name_;
  uid_t id_ = 0;
};

}  // namespace support

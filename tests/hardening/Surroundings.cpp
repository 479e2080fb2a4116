#include "tests/hardening/Surroundings.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

namespace hardening {
namespace {

constexpr rlim_t kLittleStack = 512UL << 10U;

void limit(int what, rlim_t most) {
  const auto limited = static_cast<__rlimit_resource>(what);
  rlimit both{};
  if (::getrlimit(limited, &both) != 0) ::_exit(124);
  both.rlim_cur = most;
  if (::setrlimit(limited, &both) != 0) ::_exit(124);
}

}  // namespace

void closeStreams(std::initializer_list<int> streams) {
  for (const int stream : streams) ::close(stream);
}

void spoilEnvironment() {
  for (const char* name : {"PATH", "HOME", "TMPDIR", "LD_PRELOAD", "LD_AUDIT", "GCONV_PATH", "LOCPATH",
                           "NLSPATH", "TZDIR", "XDG_DATA_HOME", "HOSTALIASES", "GETCONF_DIR"}) {
    ::setenv(name, "/Users/alice/planted", 1);
  }
  ::setenv("IFS", "/", 1);
  ::setenv("LC_ALL", "xx_XX.bogus", 1);
  ::setenv("TZ", ":/outside/secret", 1);
  ::setenv("MALLOC_CHECK_", "3", 1);
  ::setenv("POSIXLY_CORRECT", "1", 1);
}

void ignoreSignals() {
  for (int number = 1; number < NSIG; ++number) std::signal(number, SIG_IGN);
  sigset_t all;
  ::sigfillset(&all);
  ::sigprocmask(SIG_BLOCK, &all, nullptr);
}

void limitAll() {
  limit(RLIMIT_NOFILE, 32);
  limit(RLIMIT_FSIZE, 0);
  limit(RLIMIT_STACK, kLittleStack);
  limit(RLIMIT_CPU, 1);
}

std::vector<Surrounding> surroundings() {
  return {{"NoInput", [] { closeStreams({0}); }},
          {"NoOutput", [] { closeStreams({1}); }},
          {"NoErrors", [] { closeStreams({2}); }},
          {"NoStreams",
           [] {
             closeStreams({0, 1, 2});
           }},
          {"ASpoiltEnvironment", spoilEnvironment},
          {"PlacesOfLibraries",
           [] {
             spoilEnvironment();
             ::setenv("LD_LIBRARY_PATH", "/Users/alice/planted", 1);
           }},
          {"NoMask", [] { ::umask(0); }},
          {"AFullMask", [] { ::umask(0777); }},
          {"IgnoredAndBlockedSignals", ignoreSignals},
          {"FewDescriptors", [] { limit(RLIMIT_NOFILE, 32); }},
          {"NoFileSize", [] { limit(RLIMIT_FSIZE, 0); }},
          {"NoStack", [] { limit(RLIMIT_STACK, kLittleStack); }}};
}

}  // namespace hardening

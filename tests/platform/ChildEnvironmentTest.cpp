#include "platform/posix/ChildEnvironment.h"

#include <gmock/gmock.h>

namespace platform {
namespace {

using ::testing::ElementsAre;

TEST(ChildEnvironment, AnUsersChildGetsItUnchanged) {
  const std::vector<const char*> environment = {"LD_PRELOAD=x.so", "PATH=/home/alice/bin", "A=b", nullptr};
  EXPECT_THAT(childEnvironment(environment.data(), false),
              ElementsAre("LD_PRELOAD=x.so", "PATH=/home/alice/bin", "A=b"));
}

TEST(ChildEnvironment, RootsChildGetsWhatItNeedsAndNothingElse) {
  const std::vector<const char*> environment = {"LD_PRELOAD=x.so",
                                                "LD_LIBRARY_PATH=/x",
                                                "IFS=/",
                                                "BASH_ENV=/x",
                                                "ENV=/x",
                                                "PERL5LIB=/x",
                                                "LOCPATH=/x",
                                                "TMPDIR=/x",
                                                "EDITOR=/x",
                                                "BASH_FUNC_ls%%=() { x; }",
                                                "PATH=/x",
                                                "HOMES=x",
                                                "DISPLAY=:0",
                                                "HOME=/root",
                                                "USER=root",
                                                "LOGNAME=root",
                                                "TERM=xterm",
                                                "LANG=C",
                                                "LC_TIME=de",
                                                "LANGUAGE=de:en",
                                                "TZ=Europe/Paris",
                                                "HOME",
                                                nullptr};
  EXPECT_THAT(childEnvironment(environment.data(), true),
              ElementsAre("HOME=/root", "USER=root", "LOGNAME=root", "TERM=xterm", "LANG=C", "LC_TIME=de",
                          "LANGUAGE=de:en", "TZ=Europe/Paris", "PATH=/usr/bin:/bin:/usr/sbin:/sbin"));
}

TEST(ChildEnvironment, RootsChildGetsNoLanguageTerminalOrTimeZoneThatIsAPath) {
  const std::vector<const char*> environment = {"LANG=../x", "LC_ALL=/x",   "LC_TIME=%n",
                                                "TERM=/x",   "LANGUAGE=/x", "TZ=/x",
                                                "TZ=:/x",    "TZ=../x",     nullptr};
  EXPECT_THAT(childEnvironment(environment.data(), true), ElementsAre("PATH=/usr/bin:/bin:/usr/sbin:/sbin"));
}

TEST(ChildEnvironment, RootsChildThatOpensOnTheDesktopIsToldTheDisplay) {
  const std::vector<const char*> environment = {"DISPLAY=:7", "WAYLAND_DISPLAY=wayland-1", "XAUTHORITY=/x",
                                                nullptr};
  EXPECT_THAT(childEnvironment(environment.data(), true, OpensOnDesktop::yes),
              ElementsAre("DISPLAY=:7", "WAYLAND_DISPLAY=wayland-1", "PATH=/usr/bin:/bin:/usr/sbin:/sbin"));
}

}  // namespace
}  // namespace platform

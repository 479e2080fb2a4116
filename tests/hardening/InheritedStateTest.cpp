// What whoever starts a program of root's gives it and does not show in what it does at once: signals that it
// could not be ended by, a limit that would end it halfway, an environment that something would heed one day.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include <array>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "tests/hardening/AttackedComputer.h"
#include "tests/hardening/Surroundings.h"

namespace hardening {
namespace {

using ::testing::AnyOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

/// A line of /proc/PID/status, a mask of signals for example.
std::string told(pid_t process, const std::string& name) {
  std::istringstream lines(processFile(process, "status"));
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(name + ":\t")) return line.substr(name.size() + 2);
  }
  return "nothing of " + name;
}

std::string maskOf(std::initializer_list<int> signals) {
  std::uint64_t mask = 0;
  for (const int signal : signals) mask |= std::uint64_t{1} << static_cast<unsigned>(signal - 1);
  std::ostringstream text;
  text << std::hex;
  text.width(16);
  text.fill('0');
  text << mask;
  return text.str();
}

rlim_t limitOf(pid_t process, __rlimit_resource what) {
  rlimit found{};
  EXPECT_EQ(::prlimit(process, what, nullptr, &found), 0);
  return found.rlim_cur;
}

/// Where the C library of a process begins.
std::uintptr_t beginOfLibrary(pid_t process) {
  std::istringstream lines(processFile(process, "maps"));
  for (std::string line; std::getline(lines, line);) {
    if (line.ends_with("/libc.so.6")) return std::stoul(line, nullptr, 16);
  }
  ADD_FAILURE() << "no C library";
  return 0;
}

/// How far from there it keeps environ(7): the one of this process is the same file.
std::uintptr_t placeOfEnvironment() {
  void* const library = ::dlopen("libc.so.6", RTLD_NOW | RTLD_NOLOAD);
  void* const variable = ::dlsym(library, "environ");
  Dl_info where{};
  EXPECT_NE(::dladdr(variable, &where), 0);
  return reinterpret_cast<std::uintptr_t>(variable) - reinterpret_cast<std::uintptr_t>(where.dli_fbase);
}

/// Whether getenv(3) would find anything in a process. Its file "environ" tells what it was started with,
/// whatever it has done since.
bool hasEnvironment(pid_t process) {
  std::ifstream memory("/proc/" + std::to_string(process) + "/mem", std::ios::binary);
  const auto at = [&memory](std::uintptr_t place) {
    std::uintptr_t value = 0;
    memory.seekg(static_cast<std::streamoff>(place));
    EXPECT_TRUE(memory.read(reinterpret_cast<char*>(&value), sizeof value));
    return value;
  };
  const std::uintptr_t first = at(beginOfLibrary(process) + placeOfEnvironment());
  return first != 0 && at(first) != 0;
}

void spoilAll() {
  spoilEnvironment();
  ignoreSignals();
  limitAll();
}

class InheritedStateTest : public ::testing::TestWithParam<Form> {
 protected:
  void SetUp() override { QUILLMEND_NEEDS_ROOT_HERE(); }

  /// Runs the form; `before` is called when it is about to prepare its process, `atEnd` when it is about to
  /// end, each once.
  void run(const std::function<void(pid_t)>& before, const std::function<void(pid_t)>& atEnd) const {
    int looks = 0;
    const auto look = [&](const Call& call) {
      ++looks;
      (call.number == SYS_exit_group ? atEnd : before)(call.process);
      return kProceed;
    };
    const Finished finished =
        computer_.run(GetParam().command, look, spoilAll, {SYS_close_range, SYS_exit_group});
    EXPECT_EQ(finished.exitStatus, 0) << finished.errors;
    EXPECT_EQ(looks, 2);
  }

  AttackedComputer computer_;
};

/// Else nobody could end it, and a wait that an alarm is to end would last.
TEST_P(InheritedStateTest, SignalsAreNeitherBlockedNorIgnoredButForThoseOfWriting) {
  run([](pid_t process) { EXPECT_NE(told(process, "SigBlk"), maskOf({})); },
      [](pid_t process) {
        EXPECT_EQ(told(process, "SigBlk"), maskOf({}));
        EXPECT_EQ(told(process, "SigIgn"), maskOf({SIGPIPE, SIGXFSZ}));
        EXPECT_EQ(told(process, "SigCgt"), maskOf({SIGTERM, SIGINT, SIGHUP}));
      });
}

TEST_P(InheritedStateTest, LimitsEndNothingHalfway) {
  run([](pid_t process) { EXPECT_EQ(limitOf(process, RLIMIT_CPU), 1U); },
      [](pid_t process) {
        EXPECT_EQ(limitOf(process, RLIMIT_CPU), RLIM_INFINITY);
        EXPECT_EQ(limitOf(process, RLIMIT_FSIZE), RLIM_INFINITY);
        EXPECT_GE(limitOf(process, RLIMIT_NOFILE), 2048U);
        EXPECT_GE(limitOf(process, RLIMIT_STACK), 8UL << 20U);
      });
}

TEST_P(InheritedStateTest, NothingIsLeftOfTheEnvironment) {
  run([](pid_t process) { EXPECT_TRUE(hasEnvironment(process)); },
      [](pid_t process) { EXPECT_FALSE(hasEnvironment(process)); });
}

std::vector<Form> formsThatPrepare() {
  std::vector<Form> forms = formsOfAll();
  forms.push_back({"Kill", {"/helpers/killtool"}, ""});
  return forms;
}

INSTANTIATE_TEST_SUITE_P(Forms, InheritedStateTest, ::testing::ValuesIn(formsThatPrepare()), nameOfForm);

/// A spool folder's contents go into the trash under a name that tells the time.
class TrashTimeTest : public InheritedStateTest {
 protected:
  static std::string now() {
    const std::time_t moment = std::time(nullptr);
    std::tm parts{};
    std::array<char, 32> text{};
    EXPECT_GT(std::strftime(text.data(), text.size(), " %Y-%m-%d %H.%M.%S", ::gmtime_r(&moment, &parts)), 0U);
    return text.data();
  }

  /// Those in names in her home.
  [[nodiscard]] std::vector<std::string> times() const {
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(computer_.path("/Users/alice"))) {
      const std::string name = entry.path().filename();
      if (name.find(' ') != std::string::npos) found.push_back(name.substr(name.find(' ')));
    }
    return found;
  }
};

TEST_P(TrashTimeTest, IsNotThatOfAZoneWhichTheEnvironmentNames) {
  const std::string begin = now();
  const auto live = [] { ::setenv("TZ", "ELSEWHERE+11", 1); };
  const Finished finished = computer_.run(GetParam().command, nullptr, live);
  EXPECT_EQ(finished.exitStatus, 0) << finished.errors;
  ASSERT_THAT(times(), SizeIs(1));
  EXPECT_GE(times().front(), begin);
  EXPECT_LE(times().front(), now());
}

std::vector<Form> formsThatTellTheTime() {
  std::vector<Form> forms = trashForms();
  std::erase_if(forms, [](const Form& form) { return !form.name.starts_with("TrashSpool"); });
  return forms;
}

INSTANTIATE_TEST_SUITE_P(Forms, TrashTimeTest, ::testing::ValuesIn(formsThatTellTheTime()), nameOfForm);

/// fchmodat2(2), younger than the system's headers: a change of chmodtool's.
constexpr int kFchmodat2 = 452;

/// Asked to end in the middle, when it is about to change something for the first time.
class AskedToEndTest : public InheritedStateTest {
 protected:
  [[nodiscard]] Finished runAsked(int signal, const std::function<void()>& inChild) const {
    computer_.restore();
    bool isAsked = false;
    const auto ask = [&isAsked, signal](const Call& call) {
      const bool isChange = changes(call.number) || call.number == kFchmodat2;
      if (!isAsked && isChange) isAsked = ::kill(call.process, signal) == 0;
      return kProceed;
    };
    Finished finished = computer_.run(GetParam().command, ask, inChild);
    EXPECT_TRUE(isAsked);
    return finished;
  }
};

TEST_P(AskedToEndTest, ItDoesThoughWhoeverStartedItIgnoredAndBlockedThat) {
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    SCOPED_TRACE(signal);
    const Finished finished = runAsked(signal, ignoreSignals);
    EXPECT_EQ(finished.exitStatus, 1) << finished.signal;
    EXPECT_THAT(finished.errors, AnyOf(HasSubstr("asked to stop"), HasSubstr("Operation canceled")));
    const Snapshot left = computer_.homes();
    EXPECT_EQ(runAsked(signal, nullptr).exitStatus, 1);
    EXPECT_THAT(differences(computer_.homes(), left), IsEmpty());
  }
}

/// Others are done with one step, or have copied so little before they look whether they are asked.
std::vector<Form> formsOfManySteps() {
  std::vector<Form> forms = formsOfAll();
  std::erase_if(forms, [](const Form& form) {
    const bool isOneStep = form.name == "ChmodOne" || (form.runs("mv") && form.name != "MoveByCopy");
    return isOneStep || form.name == "TrashItem" || form.name == "TrashItemByCopy" ||
           form.name == "TrashSpool" || form.name == "TrashSpoolByCopy";
  });
  return forms;
}

INSTANTIATE_TEST_SUITE_P(Forms, AskedToEndTest, ::testing::ValuesIn(formsOfManySteps()), nameOfForm);

}  // namespace
}  // namespace hardening

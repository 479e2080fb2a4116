#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <sstream>
#include <thread>
#include <vector>

#include "platform/linux/support/ditto/DeflateLine.h"
#include "platform/linux/support/ditto/ZipFile.h"
#include "tests/support/AsUser.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/NoMoreThreads.h"
#include "tests/support/PathStatus.h"
#include "tests/support/ProgramRun.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;
using support::AsUser;
using support::EnvironmentVariable;
using support::kNobody;
using support::programForAll;
using support::ProgramRun;
using support::runProgram;
using support::TemporaryFolder;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr std::size_t kBlock = ditto::DeflateLine::kBlock;
constexpr const char* kPython = "/usr/bin/python3";

std::string noise(std::size_t size) {
  std::mt19937_64 random(size);
  std::vector<std::uint64_t> words(size / sizeof(std::uint64_t) + 1);
  std::generate(words.begin(), words.end(), std::ref(random));
  return {reinterpret_cast<const char*>(words.data()), size};
}

/// Lines as a log has them: they repeat, far enough apart that a window matters.
std::string logText(std::size_t size) {
  std::mt19937 random(7);
  std::string text;
  while (text.size() < size) {
    text += "12:00:" + std::to_string(random() % 60) + " host" + std::to_string(random() % 9) + " qmasterd[" +
            std::to_string(random() % 9999) + "]: batch finished\n";
  }
  text.resize(size);
  return text;
}

void setModified(const std::string& path, std::int64_t seconds) {
  const timespec times[2] = {{seconds, 0}, {seconds, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << path;
}

/// In large pieces: byte by byte a sanitizer takes a minute for what a busy run packs.
std::string readAll(const std::string& path) {
  std::ostringstream bytes;
  bytes << std::ifstream(path, std::ios::binary).rdbuf();
  return bytes.str();
}

/// How exact a reader gives times back, and whether it does so for links.
struct Times {
  std::int64_t resolution = 1;
  bool ofLinks = true;
};

std::string describe(const std::string& path, Times times) {
  const struct stat status = support::statusAt(path);
  const bool isLink = S_ISLNK(status.st_mode);
  std::string text = isLink ? "link to " + fs::read_symlink(path).string() : "mode ";
  char mode[16];
  std::snprintf(mode, sizeof mode, "%06o", status.st_mode);
  if (!isLink) text += mode;
  if (S_ISREG(status.st_mode)) {
    const std::string content = readAll(path);
    text +=
        ", " + std::to_string(content.size()) + " bytes " + std::to_string(std::hash<std::string>{}(content));
  }
  if (!isLink || times.ofLinks) {
    text += ", of " + std::to_string(status.st_mtim.tv_sec / times.resolution * times.resolution);
  }
  return text;
}

using Listing = std::map<std::string, std::string>;

Listing listing(const std::string& root, Times times = {}) {
  Listing found;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    found[entry.path().string().substr(root.size() + 1)] = describe(entry.path().string(), times);
  }
  return found;
}

std::vector<std::string> namesIn(const std::string& root) {
  std::vector<std::string> names;
  for (const auto& [name, description] : listing(root)) names.push_back(name);
  return names;
}

/// Runs a script of a reader's own language.
ProgramRun python(const std::string& script, const std::vector<std::string>& arguments) {
  std::vector<std::string> command = {kPython, "-c", "import sys, os, stat, time, zipfile\n" + script};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return runProgram(command);
}

constexpr const char* kPythonExtracts = R"(
archive = zipfile.ZipFile(sys.argv[1])
folders = []
for info in archive.infolist():
    name = info.filename if info.flag_bits & 0x800 else info.filename.encode('cp437')
    path = os.path.join(os.fsencode(sys.argv[2]), os.fsencode(name))
    mode, when = info.external_attr >> 16, time.mktime(info.date_time + (0, 0, -1))
    if stat.S_ISLNK(mode):
        os.symlink(archive.read(info), path)
        continue
    if stat.S_ISDIR(mode):
        os.mkdir(path)
        folders.append((path, mode, when))
        continue
    with archive.open(info) as content, open(path, 'wb') as file:
        while piece := content.read(1 << 20):
            file.write(piece)
    os.chmod(path, stat.S_IMODE(mode))
    os.utime(path, (when, when))
for path, mode, when in reversed(folders):
    os.chmod(path, stat.S_IMODE(mode))
    os.utime(path, (when, when))
)";

/// Somebody else's program that unpacks a zip archive.
struct Reader {
  const char* name;
  Times times;
  ProgramRun (*extract)(const std::string& archive, const std::string& into);
};

const Reader kReaders[] = {
    {"unzip",
     {.ofLinks = false},
     [](const std::string& archive, const std::string& into) {
       return runProgram({"/usr/bin/unzip", "-q", "-K", "-V", archive, "-d", into});
     }},
    {"bsdtar",
     {},
     [](const std::string& archive, const std::string& into) {
       return runProgram({"/usr/bin/bsdtar", "-xpf", archive, "-C", into});
     }},
    {"zipfile",
     {.resolution = 2, .ofLinks = false},
     [](const std::string& archive, const std::string& into) {
       return python(kPythonExtracts, {archive, into});
     }},
};

class Ditto : public ::testing::Test {
 protected:
  /// Before a part of a test runs as somebody else, who could not make the copy.
  const std::string ditto = programForAll(DITTO_PROGRAM);

  [[nodiscard]] ProgramRun run(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), ditto);
    return runProgram(arguments);
  }
  /// Packs folder/source; the archive is beside it in a folder of its own.
  ProgramRun pack() const { return run({"-ck", "--keepParent", source, archive}); }

  /// What each reader unpacks is what is on the disk.
  void expectAllReadersGiveBack(const std::string& original) const {
    const EnvironmentVariable locale("LC_ALL", "C.UTF-8");
    for (const Reader& reader : kReaders) {
      const TemporaryFolder out;
      const ProgramRun unpacked = reader.extract(archive, out.path());
      EXPECT_EQ(unpacked.status, 0) << reader.name << ": " << unpacked.output;
      EXPECT_EQ(listing(out.path(), reader.times), listing(original, reader.times)) << reader.name;
    }
  }
  [[nodiscard]] std::vector<std::string> packedNames() const {
    const TemporaryFolder out;
    const EnvironmentVariable locale("LC_ALL", "C.UTF-8");
    const ProgramRun unpacked = runProgram({"/usr/bin/bsdtar", "-xf", archive, "-C", out.path()});
    EXPECT_EQ(unpacked.status, 0) << unpacked.output;
    return namesIn(out.path());
  }
  void expectIsIntact() const {
    const ProgramRun test = runProgram({"/usr/bin/unzip", "-tq", archive});
    EXPECT_EQ(test.status, 0) << test.output;
  }
  [[nodiscard]] std::vector<std::string> archives() const { return namesIn(folder / "out"); }

  TemporaryFolder folder;
  std::string tree = folder.folder("in");
  std::string source = folder.folder("in/Logs");
  std::string archive = folder.folder("out") + "/logs.zip";
};

TEST_F(Ditto, GivesBackContentsModesTimesLinksAndEmptyFolders) {
  const std::map<std::string, std::string> files = {
      {"empty", ""},
      {"one byte", "x"},
      {"log.txt", logText(5000)},
      {"noise", noise(1000)},
      {"one block", logText(kBlock)},
      {"a block and a byte", logText(kBlock + 1)},
      {"two blocks", logText(2 * kBlock)},
      {"many blocks", logText(7 * kBlock + 77)},
      {"many blocks of noise", noise(3 * kBlock + 5)},
      {"sub/deeper/file", "deep"},
  };
  mode_t mode = 0400;
  std::int64_t modified = 1'300'000'001;
  for (const auto& [name, content] : files) {
    const std::string path = folder.file("in/Logs/" + name, content);
    ASSERT_EQ(::chmod(path.c_str(), mode++), 0);
    setModified(path, modified += 86'401);
  }
  ASSERT_EQ(::chmod(folder.file("in/Logs/set id", "x").c_str(), 06755), 0);
  fs::create_symlink("../log.txt", source + "/sub/link");
  fs::create_symlink("/no/such/file", source + "/dangling");
  fs::create_directory_symlink("sub", source + "/link to a folder");
  for (const char* const link : {"sub/link", "dangling", "link to a folder"}) {
    setModified(source + "/" + link, 1'200'000'003);
  }
  for (const char* const name : {"empty folder", "sub/deeper", "sub", ""}) {
    const std::string path = folder.folder(std::string("in/Logs/") + name);
    ASSERT_EQ(::chmod(path.c_str(), *name == '\0' ? 01777 : 0711), 0);
    setModified(path, 1'100'000'001);
  }
  const ProgramRun run = pack();
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, "");
  expectAllReadersGiveBack(tree);
}

TEST_F(Ditto, GivesBackNamesOfEveryKind) {
  for (const char* const name :
       {"Protokolle für Änderungen.log", "記録/日誌.txt", "🗜", "-dash", "--keepParent", " blanks ",
        "quote\"'", "back\\slash", "star*?[x]", "semi;1", ".hidden", "...", "~"}) {
    folder.file(std::string("in/Logs/") + name, name);
  }
  folder.file("in/Logs/" + std::string(255, 'n'), "long");
  folder.file("in/Logs/" + std::string(255, 'f') + "/" + std::string(255, 'g'), "longer");
  EXPECT_EQ(pack().status, 0);
  expectAllReadersGiveBack(tree);
}

TEST_F(Ditto, GivesBackADeepTree) {
  std::string deep = source;
  for (int level = 0; level < 300; ++level) {
    deep += "/d";
    ASSERT_EQ(::mkdir(deep.c_str(), 0755), 0);
  }
  std::ofstream(deep + "/bottom") << "found";
  EXPECT_EQ(runProgram({"/bin/sh", "-c", "ulimit -Sn 100; exec \"$@\"", "sh", DITTO_PROGRAM, "-ck",
                        "--keepParent", source, archive})
                .status,
            0);
  expectAllReadersGiveBack(tree);
}

TEST_F(Ditto, SaysWhatItCouldNotReachWithTooFewDescriptors) {
  std::string deep = source;
  for (int level = 0; level < 60; ++level) fs::create_directory(deep += "/d");
  folder.file("in/Logs/z", "still packed");
  const ProgramRun run = runProgram({"/bin/sh", "-c", "ulimit -n 40; exec \"$@\"", "sh", DITTO_PROGRAM, "-ck",
                                     "--keepParent", source, archive});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.output, HasSubstr("/d/d/d: Too many open files\n"));
  EXPECT_THAT(packedNames(), testing::Contains("Logs/z"));
}

TEST_F(Ditto, MarksNamesAsUtf8WhateverTheLocale) {
  folder.file("in/Logs/für", "x");
  folder.file("in/Logs/u\u0308", "x");  // decomposed, as a Mac has it; bsdtar would compose it
  std::string first;
  for (const char* const locale : {"C", "POSIX", "C.UTF-8", "no_SUCH.locale"}) {
    const EnvironmentVariable language("LANG", locale);
    const EnvironmentVariable all("LC_ALL", locale);
    EXPECT_EQ(pack().status, 0) << locale;
    if (first.empty()) first = readAll(archive);
    EXPECT_EQ(readAll(archive), first) << locale;
  }
  const EnvironmentVariable language("LANG", std::nullopt);
  const EnvironmentVariable all("LC_ALL", std::nullopt);
  EXPECT_EQ(pack().status, 0);
  EXPECT_EQ(readAll(archive), first);
  EXPECT_EQ(python("for i in zipfile.ZipFile(sys.argv[1]).infolist():"
                   " print(ascii(i.filename), i.flag_bits)",
                   {archive})
                .output,
            "'Logs/' 2048\n'Logs/f\\xfcr' 2048\n'Logs/u\\u0308' 2048\n");
}

TEST_F(Ditto, KeepsNamesThatAreNotUtf8ByteForByte) {
  folder.file("in/Logs/caf\xe9.log", "latin");
  folder.file("in/Logs/\xc3(\xff", "broken");
  folder.file("in/Logs/\xed\xa0\x80", "surrogate");
  fs::create_symlink("caf\xe9.log", source + "/link\x80");
  const ProgramRun run = pack();
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, "");
  const EnvironmentVariable locale("LC_ALL", "C");
  for (const Reader& reader : {kReaders[1], kReaders[2]}) {
    const TemporaryFolder out;
    EXPECT_EQ(reader.extract(archive, out.path()).status, 0) << reader.name;
    EXPECT_EQ(listing(out.path(), reader.times), listing(tree, reader.times)) << reader.name;
  }
  // unzip writes no name with 0xFF in it.
  fs::remove(source + "/\xc3(\xff");
  EXPECT_EQ(pack().status, 0);
  const TemporaryFolder out;
  EXPECT_EQ(kReaders[0].extract(archive, out.path()).status, 0);
  EXPECT_EQ(listing(out.path(), kReaders[0].times), listing(tree, kReaders[0].times));
}

TEST_F(Ditto, KeepsLineBreaksInNames) {
  folder.file("in/Logs/two\nlines", "x");
  EXPECT_EQ(pack().status, 0);
  EXPECT_THAT(packedNames(), ElementsAre("Logs", "Logs/two\nlines"));
}

TEST_F(Ditto, KeepsTimesBeforeTheFormatsOwn) {
  setModified(folder.file("in/Logs/1970", "x"), 0);
  setModified(folder.file("in/Logs/1975", "x"), 157'766'401);
  setModified(folder.file("in/Logs/2038", "x"), 2'147'483'647);
  EXPECT_EQ(pack().status, 0);
  for (const Reader& reader : {kReaders[0], kReaders[1]}) {
    const TemporaryFolder out;
    EXPECT_EQ(reader.extract(archive, out.path()).status, 0) << reader.name;
    EXPECT_EQ(listing(out.path()), listing(tree)) << reader.name;
  }
}

// Readers do not agree on what a negative number means, but all of them read the format's own date.
TEST_F(Ditto, TurnsTimesBefore1970IntoTheFirstThatAllReadersKnow) {
  const EnvironmentVariable zone("TZ", "UTC");
  setModified(folder.file("in/Logs/1969", "x"), -86'400);
  EXPECT_EQ(pack().status, 0);
  for (const Reader& reader : kReaders) {
    const TemporaryFolder out;
    EXPECT_EQ(reader.extract(archive, out.path()).status, 0) << reader.name;
    struct stat status {};
    ASSERT_EQ(::stat((out / "Logs/1969").c_str(), &status), 0);
    EXPECT_EQ(status.st_mtim.tv_sec, 315'532'800) << reader.name;
  }
}

TEST_F(Ditto, KeepsTimesThatThirtyTwoBitsDoNotHold) {
  const EnvironmentVariable zone("TZ", "UTC");
  constexpr std::int64_t of2050 = 2'524'608'001;
  setModified(folder.file("in/Logs/2050", "x"), of2050);
  EXPECT_EQ(pack().status, 0);
  for (const Reader& reader : kReaders) {
    const TemporaryFolder out;
    EXPECT_EQ(reader.extract(archive, out.path()).status, 0) << reader.name;
    struct stat status {};
    ASSERT_EQ(::stat((out / "Logs/2050").c_str(), &status), 0);
    EXPECT_EQ(status.st_mtim.tv_sec, of2050 - 1) << reader.name;
  }
}

TEST_F(Ditto, TakesOptionsTogetherAndApart) {
  folder.file("in/Logs/a", "x");
  for (const std::vector<std::string>& options : {std::vector<std::string>{"-ck", "--keepParent"},
                                                  {"-kc", "--keepParent"},
                                                  {"-c", "-k", "--keepParent"},
                                                  {"--keepParent", "-k", "-c"},
                                                  {"-ck", "--keepParent", "--"}}) {
    std::vector<std::string> arguments = options;
    arguments.insert(arguments.end(), {source, archive});
    EXPECT_EQ(run(arguments).status, 0);
    EXPECT_THAT(packedNames(), ElementsAre("Logs", "Logs/a"));
    fs::remove(archive);
  }
}

TEST_F(Ditto, PacksTheContentOfAFolderWithoutKeepParent) {
  folder.file("in/Logs/a", "x");
  folder.file("in/Logs/b/c", "x");
  EXPECT_EQ(run({"-c", "-k", source, archive}).status, 0);
  EXPECT_THAT(packedNames(), ElementsAre("a", "b", "b/c"));
}

TEST_F(Ditto, RefusesOtherArgumentsAndMakesNothing) {
  for (const std::vector<std::string>& arguments : {std::vector<std::string>{},
                                                    {"-ck"},
                                                    {"-ck", source},
                                                    {"-c", source, archive},
                                                    {"-k", source, archive},
                                                    {source, archive},
                                                    {"-xk", source, archive},
                                                    {"-ckX", source, archive},
                                                    {"-", "-ck", source, archive},
                                                    {"-ck", "--rsrc", source, archive},
                                                    {"-ck", source, archive, archive},
                                                    {"-ck", source, archive, "--keepParent"}}) {
    const ProgramRun wrong = run(arguments);
    EXPECT_EQ(wrong.status, 64) << testing::PrintToString(arguments);
    EXPECT_EQ(wrong.output, "usage: ditto -ck [--keepParent] SOURCE ARCHIVE\n");
  }
  EXPECT_THAT(archives(), IsEmpty());
}

TEST_F(Ditto, PacksASingleFileUnderItsOwnName) {
  const std::string file = folder.file("in/Logs/only.log", logText(100));
  for (const auto& arguments :
       {std::vector<std::string>{"-ck", "--keepParent", file, archive}, {"-ck", file, archive}}) {
    EXPECT_EQ(run(arguments).status, 0);
    EXPECT_THAT(packedNames(), ElementsAre("only.log"));
  }
}

TEST_F(Ditto, PacksALinkAsALinkAndFollowsItOnlyBehindASlash) {
  folder.file("in/Logs/a", "x");
  const std::string link = folder / "in/link";
  fs::create_directory_symlink("Logs", link);
  EXPECT_EQ(run({"-ck", "--keepParent", link, archive}).status, 0);
  EXPECT_THAT(packedNames(), ElementsAre("link"));
  if (::geteuid() == 0) return;  // what root follows: LetsNobodyLeadRootElsewhere
  EXPECT_EQ(run({"-ck", "--keepParent", link + "/", archive}).status, 0);
  EXPECT_THAT(packedNames(), ElementsAre("link", "link/a"));
}

TEST_F(Ditto, FollowsALinkBehindASlashForAUser) {
  folder.makeAccessibleToAll();
  folder.file("in/Logs/a", "x");
  fs::create_directory_symlink("Logs", folder / "in/link");
  fs::permissions(folder / "out", fs::perms::all);
  AsUser::run(kNobody, [&] {
    EXPECT_EQ(run({"-ck", "--keepParent", folder / "in/link/", archive}).status, 0);
  });
  EXPECT_THAT(packedNames(), ElementsAre("link", "link/a"));
}

TEST_F(Ditto, TakesSlashesAtTheEndAndRelativePaths) {
  folder.file("in/Logs/a", "x");
  EXPECT_EQ(run({"-ck", "--keepParent", source + "//", archive}).status, 0);
  EXPECT_THAT(packedNames(), ElementsAre("Logs", "Logs/a"));
  for (const char* const path : {".", "./", "../Logs", "../../in/Logs/"}) {
    const ProgramRun run =
        runProgram({"/bin/sh", "-c", "cd \"$1\" && \"$2\" -ck --keepParent \"$3\" ../../out/logs.zip", "sh",
                    source, DITTO_PROGRAM, path});
    EXPECT_EQ(run.status, 0) << path << run.output;
    EXPECT_THAT(packedNames(), ElementsAre("Logs", "Logs/a")) << path;
  }
}

TEST_F(Ditto, PacksAnEmptyFolder) {
  EXPECT_EQ(pack().status, 0);
  EXPECT_THAT(packedNames(), ElementsAre("Logs"));
  EXPECT_EQ(run({"-ck", source, archive}).status, 0);
  EXPECT_EQ(python("print(zipfile.ZipFile(sys.argv[1]).namelist())", {archive}).output, "[]\n");
}

TEST_F(Ditto, SaysThatTheSourceIsMissingAndKeepsTheArchiveThatWasThere) {
  std::ofstream(archive) << "old";
  const ProgramRun missing = run({"-ck", "--keepParent", source + "/none", archive});
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.output, "ditto: " + source + "/none: No such file or directory\n");
  EXPECT_EQ(run({"-ck", "", archive}).output, "ditto: : No such file or directory\n");
  EXPECT_THAT(archives(), ElementsAre("logs.zip"));
  EXPECT_EQ(readAll(archive), "old");
}

TEST_F(Ditto, ReplacesAnArchiveAndALinkInItsPlace) {
  const std::string other = folder.file("other", "untouched");
  fs::create_symlink(other, archive);
  EXPECT_EQ(pack().status, 0);
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(archive)));
  EXPECT_EQ(readAll(other), "untouched");
  folder.file("in/Logs/new", "x");
  EXPECT_EQ(pack().status, 0);
  EXPECT_THAT(packedNames(), ElementsAre("Logs", "Logs/new"));
}

TEST_F(Ditto, RefusesPlacesWhereNoArchiveCanBe) {
  fs::create_directory(archive);
  EXPECT_EQ(pack().output, "ditto: " + archive + ": Is a directory\n");
  EXPECT_EQ(pack().status, 1);
  EXPECT_EQ(run({"-ck", source, folder / "none/x.zip"}).output,
            "ditto: " + (folder / "none/x.zip") + ": No such file or directory\n");
  EXPECT_EQ(run({"-ck", source, folder / "out/x/"}).status, 1);
  EXPECT_EQ(run({"-ck", source, ""}).status, 1);
  ASSERT_EQ(::mkfifo((folder / "out/fifo").c_str(), 0666), 0);
  EXPECT_EQ(run({"-ck", source, folder / "out/fifo"}).output,
            "ditto: " + (folder / "out/fifo") + ": Invalid argument\n");
  EXPECT_THAT(archives(), ElementsAre("fifo", "logs.zip"));
}

TEST_F(Ditto, DoesNotReplaceItsOwnSource) {
  const std::string file = folder.file("in/log", "precious");
  const ProgramRun same = run({"-ck", file, file});
  EXPECT_EQ(same.status, 1);
  EXPECT_EQ(same.output, "ditto: " + file + ": is the archive that is to be made\n");
  EXPECT_EQ(readAll(file), "precious");
}

TEST_F(Ditto, DoesNotPackItself) {
  folder.file("in/Logs/a", "x");
  archive = source + "/logs.zip";
  for (int time = 0; time < 2; ++time) {
    EXPECT_EQ(pack().status, 0);
    EXPECT_THAT(packedNames(), ElementsAre("Logs", "Logs/a"));
  }
  folder.file("in/Logs/sub/logs.zip", "another of that name");
  EXPECT_EQ(pack().status, 0);
  EXPECT_THAT(packedNames(), ElementsAre("Logs", "Logs/a", "Logs/sub", "Logs/sub/logs.zip"));
}

TEST_F(Ditto, MakesAnArchiveThatTheUmaskAllowsToBeRead) {
  const mode_t before = ::umask(0027);
  EXPECT_EQ(pack().status, 0);
  ::umask(before);
  EXPECT_EQ(fs::status(archive).permissions(), static_cast<fs::perms>(0640));
  fs::remove(archive);
  const mode_t open = ::umask(0);
  EXPECT_EQ(pack().status, 0);
  ::umask(open);
  EXPECT_EQ(fs::status(archive).permissions(), static_cast<fs::perms>(0644));
}

TEST_F(Ditto, GivesWhatRootMakesInSomebodysFolderToThem) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  constexpr uid_t owner = 501;
  constexpr gid_t group = 20;
  ASSERT_EQ(::chown((folder / "out").c_str(), owner, group), 0);
  std::ofstream(archive) << "old, and root's";
  const mode_t before = ::umask(0077);
  EXPECT_EQ(pack().status, 0);
  EXPECT_EQ(run({"-ck", source, folder / "in/roots.zip"}).status, 0);
  ::umask(before);
  struct stat status {};
  ASSERT_EQ(::stat(archive.c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, owner) << "could not be read otherwise";
  EXPECT_EQ(status.st_gid, group);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
  ASSERT_EQ(::stat((folder / "in/roots.zip").c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 0U);
}

TEST_F(Ditto, PassesOverFifosSocketsAndDevicesWithoutOpeningThem) {
  folder.file("in/Logs/a", "x");
  ASSERT_EQ(::mkfifo((source + "/fifo").c_str(), 0666), 0);
  const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  (source + "/socket").copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  const std::string reason = ": left out: neither a file, a folder nor a link\n";
  std::string expected;
  if (::mknod((source + "/device").c_str(), S_IFCHR | 0666, makedev(1, 3)) == 0) {
    expected = "ditto: " + source + "/device" + reason;
  }
  expected += "ditto: " + source + "/fifo" + reason + "ditto: " + source + "/socket" + reason;
  const ProgramRun run = pack();
  ::close(socket);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, expected);
  EXPECT_THAT(packedNames(), ElementsAre("Logs", "Logs/a"));
  const ProgramRun only = Ditto::run({"-ck", source + "/fifo", archive + "2"});
  EXPECT_EQ(only.status, 1);
  EXPECT_THAT(archives(), ElementsAre("logs.zip"));
}

TEST_F(Ditto, PacksTheRestOfWhatCannotBeReadAndSaysSo) {
  folder.makeAccessibleToAll();
  folder.file("in/Logs/a", "readable");
  folder.file("in/Logs/closed/secret", "x");
  folder.file("in/Logs/private", "x");
  folder.file("in/Logs/z", "readable");
  fs::permissions(folder / "out", fs::perms::all);
  fs::permissions(source + "/closed", fs::perms::none);
  fs::permissions(source + "/private", fs::perms::none);
  AsUser::run(kNobody, [&] {
    const ProgramRun run = pack();
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.output, "ditto: " + source + "/closed: Permission denied\n" + "ditto: " + source +
                              "/private: Permission denied\n");
  });
  fs::permissions(source + "/closed", fs::perms::owner_all);
  EXPECT_EQ(python("print(zipfile.ZipFile(sys.argv[1]).namelist())", {archive}).output,
            "['Logs/', 'Logs/a', 'Logs/closed/', 'Logs/z']\n");
}

TEST_F(Ditto, MakesNoArchiveOfASourceThatCannotBeRead) {
  folder.makeAccessibleToAll();
  folder.file("in/Logs/secret", "x");
  fs::permissions(folder / "out", fs::perms::all);
  fs::permissions(source, fs::perms::none);
  AsUser::run(kNobody, [&] {
    const ProgramRun run = pack();
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.output, "ditto: " + source + ": Permission denied\n");
  });
  fs::permissions(source, fs::perms::owner_all);
  EXPECT_THAT(archives(), IsEmpty());
}

TEST_F(Ditto, LetsNobodyLeadRootElsewhere) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  folder.makeAccessibleToAll();
  folder.file("secret/key", "x");
  const std::string home = folder.folder("home");
  ASSERT_EQ(::chown(home.c_str(), kNobody, kNobody), 0);
  fs::create_directory_symlink(folder / "secret", home + "/Logs");
  EXPECT_THAT(run({"-ck", home + "/Logs/key", archive}).output,
              HasSubstr("Too many levels of symbolic links"));
  EXPECT_EQ(run({"-ck", home + "/Logs/", archive}).status, 1);
  EXPECT_EQ(run({"-ck", source, home + "/Logs/x.zip"}).status, 1);
  EXPECT_THAT(namesIn(folder / "secret"), ElementsAre("key"));
  EXPECT_THAT(archives(), IsEmpty());
  EXPECT_EQ(run({"-ck", "--keepParent", home, archive}).status, 0);
  EXPECT_THAT(packedNames(), ElementsAre("home", "home/Logs"));
}

TEST_F(Ditto, NeedsNoRightToListTheFoldersAboveTheSource) {
  folder.makeAccessibleToAll();
  folder.file("in/Logs/a", "x");
  fs::permissions(folder / "out", fs::perms::all);
  fs::permissions(tree, fs::perms::owner_all | fs::perms::group_exec | fs::perms::others_exec);
  AsUser::run(kNobody, [&] { EXPECT_EQ(pack().status, 0); });
  EXPECT_THAT(packedNames(), ElementsAre("Logs", "Logs/a"));
}

TEST_F(Ditto, LeavesNothingOnAFullDisk) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  folder.file("in/Logs/noise", noise(4 << 20));
  const std::string small = folder.folder("small");
  ASSERT_EQ(::mount("tmpfs", small.c_str(), "tmpfs", 0, "size=2m"), 0);
  std::ofstream(small + "/logs.zip") << "old";
  const ProgramRun run = Ditto::run({"-ck", "--keepParent", source, small + "/logs.zip"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output, "ditto: " + small + "/logs.zip: No space left on device\n");
  EXPECT_THAT(namesIn(small), ElementsAre("logs.zip"));
  EXPECT_EQ(readAll(small + "/logs.zip"), "old");
  EXPECT_EQ(::umount(small.c_str()), 0);
}

TEST_F(Ditto, LeavesNothingWhenTheFileMayNotGrow) {
  folder.file("in/Logs/noise", noise(2 << 20));
  const ProgramRun run = runProgram({"/bin/sh", "-c", "ulimit -f 100; exec \"$@\"", "sh", DITTO_PROGRAM,
                                     "-ck", "--keepParent", source, archive});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output, "ditto: " + archive + ": File too large\n");
  EXPECT_THAT(archives(), IsEmpty());
}

TEST_F(Ditto, IsNotEndedByAMessageThatNobodyReads) {
  ASSERT_EQ(::mkfifo((source + "/fifo").c_str(), 0666), 0);
  const ProgramRun run =
      runProgram({"/bin/sh", "-c", "exec 4<>\"$0\"; exec 5>\"$0\" 4>&-; \"$@\" 2>&5", source + "/fifo",
                  DITTO_PROGRAM, "-ck", "--keepParent", source, archive});
  EXPECT_EQ(run.status, 0);
  expectIsIntact();
}

/// A run that is busy with its first file, of noise, and has read the folder's list of names.
class BusyDitto : public Ditto {
 protected:
  void begin(const std::vector<std::string>& before = {}) {
    folder.file("in/Logs/a", noise(48 << 20));
    folder.file("in/Logs/b", logText(100));
    folder.file("in/Logs/z", logText(100));
    std::ofstream(archive) << "old";
    command = before;
    command.insert(command.end(), {DITTO_PROGRAM, "-ck", "--keepParent", source, archive});
    runner = std::thread([this] { run = runProgram(command); });
    while (temporary().empty() || fs::file_size(temporary()) == 0) std::this_thread::yield();
  }
  /// The file that is not whole yet; empty when there is none.
  [[nodiscard]] std::string temporary() const {
    for (const std::string& name : archivesNow()) {
      if (name.starts_with(".ditto-")) return folder / ("out/" + name);
    }
    return "";
  }
  [[nodiscard]] std::vector<std::string> archivesNow() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder / "out"))
      names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
  }
  /// The process that has that file open.
  [[nodiscard]] pid_t process() const {
    const fs::path wanted = temporary();
    for (const auto& entry : fs::directory_iterator("/proc")) {
      std::error_code failed;
      const fs::path program = fs::read_symlink(entry.path() / "exe", failed);
      if (failed || program != fs::canonical(DITTO_PROGRAM)) continue;
      fs::directory_iterator file(entry.path() / "fd", failed);
      for (; !failed && file != fs::directory_iterator(); file.increment(failed)) {
        std::error_code closed;
        if (fs::read_symlink(file->path(), closed) == wanted)
          return std::stoi(entry.path().filename().string());
      }
    }
    return -1;
  }
  /// The most memory that a process has had so far, in kilobytes; nothing when it has ended.
  static std::optional<long> peakMemory(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
      if (line.starts_with("VmHWM:")) return std::stol(line.substr(6));
    }
    return std::nullopt;
  }
  void signal(int number) {
    const pid_t pid = process();
    ASSERT_GT(pid, 0);
    ASSERT_EQ(::kill(pid, number), 0);
  }
  void end() { runner.join(); }

  std::vector<std::string> command;
  std::thread runner;
  ProgramRun run;
};

class EndingSignal : public BusyDitto, public ::testing::WithParamInterface<int> {};

TEST_P(EndingSignal, LeavesNothingButTheOldArchive) {
  begin();
  signal(GetParam());
  end();
  EXPECT_EQ(run.status, 128 + GetParam());
  EXPECT_THAT(archivesNow(), ElementsAre("logs.zip"));
  EXPECT_EQ(readAll(archive), "old");
}

INSTANTIATE_TEST_SUITE_P(Ditto, EndingSignal, ::testing::Values(SIGTERM, SIGINT, SIGHUP, SIGQUIT));

TEST_F(BusyDitto, LeavesASignalIgnoredThatItWasStartedToIgnore) {
  begin({"/bin/sh", "-c", "trap '' HUP; exec \"$@\"", "sh"});
  signal(SIGHUP);
  end();
  EXPECT_EQ(run.status, 0);
  expectIsIntact();
}

TEST_F(BusyDitto, KeepsTheOldArchiveUntilTheNewOneIsWhole) {
  begin();
  EXPECT_EQ(readAll(archive), "old");
  EXPECT_EQ(fs::status(temporary()).permissions() & fs::perms::others_write, fs::perms::none);
  end();
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(archivesNow(), ElementsAre("logs.zip"));
  expectAllReadersGiveBack(tree);
}

TEST_F(BusyDitto, TakesLessThanThirtyTwoMebibytesOfMemory) {
  begin();
  const pid_t pid = process();
  long most = 0;
  for (auto now = peakMemory(pid); now; now = peakMemory(pid)) most = *now;
  end();
  EXPECT_GT(most, 0);
  EXPECT_LT(most, support::kIsSanitized ? 512 * 1024 : 32 * 1024);
}

TEST_F(BusyDitto, NamesWhatHasVanishedAndPacksTheRest) {
  begin();
  fs::remove(source + "/b");
  end();
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output, "ditto: " + source + "/b: No such file or directory\n");
  EXPECT_THAT(packedNames(), ElementsAre("Logs", "Logs/a", "Logs/z"));
}

TEST_F(BusyDitto, PacksAFileThatShrinksOrGrowsWhileItIsRead) {
  begin();
  std::ofstream(source + "/a", std::ios::app | std::ios::binary) << noise(kBlock);
  end();
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(python("print(zipfile.ZipFile(sys.argv[1]).getinfo('Logs/a').file_size)", {archive}).output,
            std::to_string(48 << 20) + "\n");
  fs::remove(archive);
  begin();
  fs::resize_file(source + "/a", kBlock);
  end();
  EXPECT_EQ(run.status, 0);
  expectIsIntact();
}

TEST_F(BusyDitto, DoesNotFollowALinkThatTakesAFilesPlace) {
  folder.file("secret", "SECRET");
  begin();
  fs::remove(source + "/b");
  fs::create_symlink(folder / "secret", source + "/b");
  fs::remove(source + "/z");
  ASSERT_EQ(::mkfifo((source + "/z").c_str(), 0666), 0);
  end();
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, "ditto: " + source + "/z: left out: neither a file, a folder nor a link\n");
  EXPECT_EQ(python("a = zipfile.ZipFile(sys.argv[1]); print(oct(a.getinfo('Logs/b').external_attr >> 16),"
                   " os.path.basename(a.read('Logs/b').decode()))",
                   {archive})
                .output,
            "0o120777 secret\n");
}

TEST_F(Ditto, PacksMoreEntriesThanSixteenBitsCount) {
  for (int number = 0; number < 70'000; ++number) {
    const std::string name = source + "/" + std::to_string(number % 100);
    if (number < 100) fs::create_directory(name);
    ::close(::open((name + "/f" + std::to_string(number)).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
  }
  EXPECT_EQ(pack().status, 0);
  EXPECT_EQ(python("print(len(zipfile.ZipFile(sys.argv[1]).infolist()))", {archive}).output, "70101\n");
  EXPECT_EQ(runProgram({"/bin/sh", "-c", "bsdtar -tf \"$1\" | wc -l", "sh", archive}).output, "70101\n");
  EXPECT_THAT(runProgram({"/bin/sh", "-c", "unzip -tq \"$1\" | tail -n 1", "sh", archive}).output,
              HasSubstr("No errors detected"));
  EXPECT_THAT(runProgram({"/bin/sh", "-c", "unzip -l \"$1\" | tail -n 1", "sh", archive}).output,
              HasSubstr("70101 files"));
}

/// Sizes and offsets as the readers tell them.
void expectListed(const std::string& archive, const std::string& name, std::uint64_t size) {
  const std::string bytes = std::to_string(size);
  EXPECT_EQ(
      python("print(zipfile.ZipFile(sys.argv[1]).getinfo(sys.argv[2]).file_size)", {archive, name}).output,
      bytes + "\n");
  EXPECT_THAT(runProgram({"/usr/bin/bsdtar", "-tvf", archive, name}).output, HasSubstr(" " + bytes + " "));
  EXPECT_THAT(runProgram({"/usr/bin/unzip", "-l", archive, name}).output, HasSubstr(bytes + "  "));
}

// Zeros on tmpfs, which are read without ever being in memory, so that this takes seconds.
TEST_F(Ditto, PacksAFileOfMoreThanFourGibibytes) {
  constexpr std::uint64_t size = (std::uint64_t{4} << 30U) + 12'345;
  const TemporaryFolder memory("/dev/shm");
  fs::resize_file(memory.file("zeros"), size);
  EXPECT_EQ(run({"-ck", "--keepParent", memory.path(), archive}).status, 0);
  expectListed(archive, fs::path(memory.path()).filename().string() + "/zeros", size);
}

std::uint32_t checksum(const std::string& bytes) {
  return static_cast<std::uint32_t>(
      ::crc32_z(0, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()));
}

// The archive begins far behind in a sparse file: readers take what goes before it for another program's.
TEST_F(Ditto, WritesOffsetsBeyondFourGibibytes) {
  const int file = ::open(archive.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  ASSERT_EQ(::lseek(file, off_t{5} << 30U, SEEK_SET), off_t{5} << 30U);
  ditto::ZipFile zip(file);
  for (const std::string name : {"first", "second"}) {
    zip.begin({.name = name, .mode = S_IFREG | 0644, .modified = 1'300'000'000}, name.size());
    zip.append(name);
    zip.end(checksum(name), name.size());
  }
  zip.finish();
  ::close(file);
  EXPECT_EQ(zip.failure(), 0);
  for (const std::string name : {"first", "second"}) {
    EXPECT_EQ(runProgram({"/usr/bin/unzip", "-p", archive, name}).output, name);
    EXPECT_EQ(runProgram({"/usr/bin/bsdtar", "-xOf", archive, name}).output, name);
    EXPECT_EQ(
        python("print(zipfile.ZipFile(sys.argv[1]).read(sys.argv[2]).decode())", {archive, name}).output,
        name + "\n");
  }
}

/// Packs files by as many workers and answers the archive's bytes.
std::string packedBy(unsigned workers, const std::string& archive, const std::vector<std::string>& files) {
  const int out = ::open(archive.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  ditto::ZipFile zip(out);
  ditto::DeflateLine line(zip, workers);
  for (const std::string& path : files) {
    const ditto::ZipEntry entry{
        .name = fs::path(path).filename(), .mode = S_IFREG | 0644, .modified = 1'300'000'000};
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(line.deflate(entry, file, fs::file_size(path)).failure, 0);
    ::close(file);
    for (int link = 0; link < 9; ++link) {
      line.store({.name = entry.name + std::to_string(link), .mode = S_IFLNK | 0777}, path);
    }
  }
  line.drain();
  zip.finish();
  ::close(out);
  return readAll(archive);
}

TEST_F(Ditto, MakesTheSameArchiveOnAnyNumberOfCores) {
  std::vector<std::string> files;
  for (std::size_t number = 0; number < 40; ++number) {
    files.push_back(folder.file("in/" + std::to_string(number), logText(number * number * 900 + 1)));
  }
  const std::string one = packedBy(1, archive, files);
  expectIsIntact();
  EXPECT_EQ(packedBy(2, archive, files), one);
  EXPECT_EQ(packedBy(8, archive, files), one);
}

TEST_F(Ditto, HasNoEntryForAFileThatCannotBeReadAtAll) {
  const int out = ::open(archive.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  ditto::ZipFile zip(out);
  ditto::DeflateLine line(zip, 1);
  const int unreadable = ::open(folder.file("in/x", "x").c_str(), O_WRONLY | O_CLOEXEC);
  const auto reading = line.deflate({.name = "x", .mode = S_IFREG | 0644}, unreadable, 1);
  EXPECT_EQ(reading.failure, EBADF);
  line.store({.name = "y", .mode = S_IFREG | 0644}, "y");
  line.drain();
  zip.finish();
  ::close(out);
  ::close(unreadable);
  EXPECT_THAT(packedNames(), ElementsAre("y"));
}

// A pipe that has no more for now stands for a disk that fails in the middle of a file.
TEST_F(Ditto, HasWhatCouldBeReadOfAFileThatFailsInTheMiddle) {
  const std::string readable = noise(2 * kBlock + 7);
  for (const std::size_t length : {readable.size(), 2 * kBlock, kBlock, std::size_t{1}}) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(::pipe2(ends, O_NONBLOCK | O_CLOEXEC), 0);
    ASSERT_GE(::fcntl(ends[1], F_SETPIPE_SZ, 1 << 20), static_cast<int>(length));
    ASSERT_EQ(::write(ends[1], readable.data(), length), static_cast<ssize_t>(length));
    const int out = ::open(archive.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    ditto::ZipFile zip(out);
    ditto::DeflateLine line(zip, 2);
    const auto reading = line.deflate({.name = "x", .mode = S_IFREG | 0644}, ends[0], 8 * kBlock);
    EXPECT_EQ(reading.failure, EAGAIN);
    EXPECT_EQ(reading.size, length);
    line.store({.name = "y", .mode = S_IFREG | 0644}, "y");
    line.drain();
    zip.finish();
    for (const int descriptor : {out, ends[0], ends[1]}) ::close(descriptor);
    expectIsIntact();
    const TemporaryFolder unpacked;
    EXPECT_EQ(runProgram({"/usr/bin/bsdtar", "-xf", archive, "-C", unpacked.path()}).status, 0);
    EXPECT_EQ(unpacked.content("x"), readable.substr(0, length));
    EXPECT_EQ(unpacked.content("y"), "y");
  }
}

TEST_F(Ditto, ReadsNoFurtherWhenTheArchiveCannotBeWritten) {
  constexpr std::size_t size = std::size_t{64} << 20U;
  const int file = ::open(folder.file("in/noise", noise(size)).c_str(), O_RDONLY | O_CLOEXEC);
  const int full = ::open("/dev/full", O_RDWR | O_CLOEXEC);
  ditto::ZipFile zip(full);
  ditto::DeflateLine line(zip, 2);
  static_cast<void>(line.deflate({.name = "noise", .mode = S_IFREG | 0644}, file, size));
  EXPECT_EQ(zip.failure(), ENOSPC);
  EXPECT_LT(::lseek(file, 0, SEEK_CUR), off_t{size / 4});
  ::close(file);
  ::close(full);
}

TEST_F(Ditto, PacksWithoutAnyThreads) {
  std::vector<std::string> files;
  for (std::size_t number = 0; number < 12; ++number) {
    files.push_back(folder.file("in/" + std::to_string(number), logText(number * number * 9000 + 1)));
  }
  const std::string usual = packedBy(2, archive, files);
  const support::NoMoreThreads none;
  EXPECT_EQ(packedBy(2, archive, files), usual);
}

}  // namespace

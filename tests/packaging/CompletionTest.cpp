#include <gmock/gmock.h>

#include <sstream>

#include "tests/packaging/Arguments.h"
#include "tests/support/ProgramRun.h"

// What bash offers behind "Quillmend" when Tab is pressed at the end of the last word.

namespace packaging {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Words = std::vector<std::string>;

/// Calls the function that bash was told to complete the command with, as bash calls it.
constexpr const char* kCompletion = R"(
. "$0"
COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
told=$(complete -p Quillmend)
[[ $told =~ ^complete\ -F\ ([^\ ]+)\ Quillmend$ ]] || exit 1
"${BASH_REMATCH[1]}" Quillmend "${@: -1}" "${@: -2:1}"
printf '%s\n' "${COMPREPLY[@]}"
)";

Words offered(const Words& words) {
  Words command = {"/bin/bash", "--norc", "-u", "-c", kCompletion, COMPLETION, "Quillmend"};
  command.insert(command.end(), words.begin(), words.end());
  const auto run = support::runProgram(command);
  EXPECT_EQ(run.status, 0) << run.output;
  std::istringstream lines(run.output);
  Words options;
  for (std::string line; std::getline(lines, line);) {
    if (!line.empty()) options.push_back(line);
  }
  return options;
}

TEST(Completion, OffersAllButTheArgumentOfOldSchedules) {
  auto arguments = knownArguments();
  arguments.erase("-auto");
  const Words all = offered({""});
  EXPECT_EQ(std::set<std::string>(all.begin(), all.end()), arguments);
  EXPECT_EQ(offered({"-"}), all);
}

TEST(Completion, CapitalsDoNotMatter) {
  EXPECT_THAT(offered({"-TrashP"}), ElementsAre("-trashprefs"));
  EXPECT_THAT(offered({"-REPAIR", "-S"}), ElementsAre("-silent"));
}

TEST(Completion, BehindARepairThereAreItsFlagsEachOnce) {
  for (const char* repair : {"-repair", "-Auto"}) {
    EXPECT_THAT(offered({repair, ""}), ElementsAre("-silent", "-trash", "-trashlayout", "-trashprefs"));
    EXPECT_THAT(offered({repair, "-Silent", ""}), ElementsAre("-trash", "-trashlayout", "-trashprefs"));
  }
  EXPECT_THAT(offered({"-silent", "-r"}), ElementsAre("-repair"));
}

TEST(Completion, TrashIsBothOfTheOthers) {
  EXPECT_THAT(offered({"-repair", "-trash", "-t"}), IsEmpty());
  EXPECT_THAT(offered({"-repair", "-trashprefs", "-t"}), ElementsAre("-trashlayout"));
  EXPECT_THAT(offered({"-repair", "-TrashLayout", "-t"}), ElementsAre("-trashprefs"));
  EXPECT_THAT(offered({"-repair", "-trashprefs", "-trashlayout", "-t"}), IsEmpty());
  EXPECT_THAT(offered({"-trash"}), ElementsAre("-trash", "-trashlayout", "-trashprefs"))
      << "it is not whole yet";
}

TEST(Completion, NothingFollowsWhatIsCarriedOutAlone) {
  for (const char* alone : {"-help", "-stopsharing", "-StartSharing", "-restartsharing"}) {
    EXPECT_THAT(offered({alone, ""}), IsEmpty()) << alone;
  }
}

TEST(Completion, WhatIsUnknownOffersNothingAndChangesNothing) {
  EXPECT_THAT(offered({"--repair"}), IsEmpty());
  EXPECT_THAT(offered({"*"}), IsEmpty());
  EXPECT_THAT(offered({"* [", "-re"}), ElementsAre("-repair", "-restartsharing"));
}

}  // namespace
}  // namespace packaging

#include "helpers/TrashName.h"

#include <gmock/gmock.h>

#include <set>

#include "platform/foundation/Text.h"

namespace helpers {
namespace {

using foundation::Date;

const Date kNow = Date::fromUnixTime(1'700'000'000);
const std::string kStamp = kNow.formattedLocally("%Y%m%d%H%M%S");
const std::string kDated = kNow.formattedLocally("%Y-%m-%d %H.%M.%S");

TEST(TrashName, AnItemKeepsItsNameThenGetsTheMomentThenANumber) {
  const TrashName names = TrashName::ofItem("a.txt", kNow);
  EXPECT_EQ(names.candidate(0, 255), "a.txt");
  EXPECT_EQ(names.candidate(1, 255), "a_" + kStamp + ".txt");
  EXPECT_EQ(names.candidate(2, 255), "a_" + kStamp + "_2.txt");
  EXPECT_EQ(names.candidate(3, 255), "a_" + kStamp + "_3.txt");
}

TEST(TrashName, ANameWithoutExtensionGetsNone) {
  EXPECT_EQ(TrashName::ofItem("Folder", kNow).candidate(1, 255), "Folder_" + kStamp);
  EXPECT_EQ(TrashName::ofItem(".hidden", kNow).candidate(1, 255), ".hidden_" + kStamp);
  EXPECT_EQ(TrashName::ofItem("end.", kNow).candidate(1, 255), "end._" + kStamp);
}

TEST(TrashName, ContentsAlwaysCarryTheMoment) {
  const TrashName names = TrashName::ofContents("qmaster", kNow);
  EXPECT_EQ(names.candidate(0, 255), "qmaster " + kDated);
  EXPECT_EQ(names.candidate(1, 255), "qmaster " + kDated + " 2");
}

TEST(TrashName, ALongNameIsCutInFrontOfTheMomentAndKeepsItsExtension) {
  const std::string name = std::string(251, 'n') + ".txt";
  EXPECT_EQ(TrashName::ofItem(name, kNow).candidate(0, 255), name);
  const std::string second = TrashName::ofItem(name, kNow).candidate(1, 255);
  EXPECT_EQ(second.size(), 255U);
  EXPECT_THAT(second, ::testing::EndsWith("n_" + kStamp + ".txt"));
}

TEST(TrashName, LongNamesStayDifferentForEachAttempt) {
  const TrashName names = TrashName::ofItem(std::string(255, 'n'), kNow);
  std::set<std::string> seen;
  for (unsigned attempt = 0; attempt < 2000; ++attempt) {
    const std::string name = names.candidate(attempt, 255);
    EXPECT_LE(name.size(), 255U);
    EXPECT_TRUE(seen.insert(name).second) << name;
  }
}

TEST(TrashName, TheCutFallsBetweenCharacters) {
  std::string name;
  for (int i = 0; i < 127; ++i) name += "é";
  const std::string second = TrashName::ofItem(name, kNow).candidate(1, 255);
  const std::size_t stem = second.find('_');
  EXPECT_EQ(stem % 2, 0U);
  EXPECT_LE(second.size(), 255U);
}

TEST(TrashName, ANameOfOneExtensionOnlyIsCutLikeAnyOther) {
  const std::string name = "a." + std::string(253, 'x');
  EXPECT_EQ(TrashName::ofItem(name, kNow).candidate(0, 255), name);
  EXPECT_EQ(TrashName::ofItem(name, kNow).candidate(1, 255).size(), 255U);
}

TEST(TrashName, TheCutTakesNoPartOfACharacterWhereverItFalls) {
  for (const std::string front : {"", "a", "aa"}) {
    std::string name = front;
    while (name.size() < 250) name += "日";
    const std::string second = TrashName::ofItem(name, kNow).candidate(1, 250);
    EXPECT_TRUE(foundation::isUtf8(second)) << second;
    EXPECT_GT(second.size(), 246U);
    EXPECT_LE(second.size(), 250U);
  }
}

TEST(TrashName, OfANameWithoutRoomForItsMomentOneByteStays) {
  EXPECT_EQ(TrashName::ofItem("folder", kNow).candidate(1, 10), "f_" + kStamp);
}

}  // namespace
}  // namespace helpers

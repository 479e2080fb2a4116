#include "workstation/Difference.h"

#include <gmock/gmock.h>

namespace workstation {
namespace {

using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::IsEmpty;

SnapshotEntry folder(const std::string& identity) {
  return {.type = 'd', .mode = 0755, .identity = identity};
}

SnapshotEntry file(const std::string& identity, std::uint64_t hash = 1) {
  return {.type = 'f', .mode = 0644, .size = 5, .hash = hash, .identity = identity};
}

Snapshot snapshot(std::map<std::string, SnapshotEntry> entries) {
  entries.emplace("/", folder("root"));
  return {.entries = std::move(entries)};
}

auto move(const std::string& from, const std::string& to, std::size_t things) {
  return AllOf(Field(&Move::from, from), Field(&Move::to, to), Field(&Move::things, things));
}

auto presence(const std::string& path, std::size_t things) {
  return AllOf(Field(&Presence::path, path), Field(&Presence::things, things));
}

TEST(Difference, EqualSnapshotsDoNotDiffer) {
  const auto one = snapshot({{"/a", file("1")}});
  EXPECT_TRUE(compare(one, one).empty());
}

TEST(Difference, ARenamedThingIsAMoveWhateverItsNewName) {
  const auto difference = compare(snapshot({{"/a", file("1")}}), snapshot({{"/b", file("1")}}));
  EXPECT_THAT(difference.moved, ElementsAre(move("/a", "/b", 1)));
  EXPECT_THAT(difference.created, IsEmpty());
  EXPECT_THAT(difference.removed, IsEmpty());
}

TEST(Difference, WhatIsInsideAMovedFolderIsCountedWithIt) {
  const auto difference = compare(snapshot({{"/a", folder("1")}, {"/a/x", file("2")}, {"/a/y", file("3")}}),
                                  snapshot({{"/b", folder("1")}, {"/b/x", file("2")}, {"/b/z", file("3")}}));
  EXPECT_THAT(difference.moved, ElementsAre(move("/a", "/b", 2), move("/a/y", "/b/z", 1)));
}

TEST(Difference, ACopyThatTookTheOriginalsPlaceElsewhereIsAMove) {
  const auto difference = compare(snapshot({{"/a/x", file("1", 7)}}),
                                  snapshot({{"/b/x", file("2", 7)}, {"/b/other", file("3", 7)}}));
  EXPECT_THAT(difference.moved, ElementsAre(move("/a/x", "/b/x", 1)));
  EXPECT_THAT(difference.created, ElementsAre(presence("/b/other", 1)));
}

TEST(Difference, AFileWrittenAnewIsAChange) {
  const auto difference = compare(snapshot({{"/a", file("1", 7)}}), snapshot({{"/a", file("2", 8)}}));
  ASSERT_THAT(difference.changed, ElementsAre(Field(&Change::path, "/a")));
  EXPECT_EQ(difference.changed[0].after.hash, 8U);
  EXPECT_THAT(difference.moved, IsEmpty());
}

TEST(Difference, AThingMovedAwayWhosePlaceIsTakenIsAMoveAndACreation) {
  const auto difference =
      compare(snapshot({{"/a", file("1")}}), snapshot({{"/a", file("2", 9)}, {"/trash", file("1")}}));
  EXPECT_THAT(difference.moved, ElementsAre(move("/a", "/trash", 1)));
  EXPECT_THAT(difference.created, ElementsAre(presence("/a", 1)));
}

TEST(Difference, OwnerModeAndKindAreChanges) {
  auto before = snapshot({{"/owner", file("1")}, {"/mode", file("2")}, {"/kind", file("3")}});
  auto after = before;
  after.entries["/owner"].user = 501;
  after.entries["/mode"].mode = 0600;
  after.entries["/kind"] = {.type = 'p', .mode = 0644, .identity = "4"};
  EXPECT_THAT(compare(before, after).changed,
              ElementsAre(Field(&Change::path, "/kind"), Field(&Change::path, "/mode"),
                          Field(&Change::path, "/owner")));
}

TEST(Difference, CreatedAndRemovedFoldersAreCountedWhole) {
  const auto difference =
      compare(snapshot({{"/old", folder("1")}, {"/old/x", file("2")}}),
              snapshot({{"/new", folder("3")}, {"/new/y", file("4", 2)}, {"/new/z", file("5", 3)}}));
  EXPECT_THAT(difference.removed, ElementsAre(presence("/old", 2)));
  EXPECT_THAT(difference.created, ElementsAre(presence("/new", 3)));
}

}  // namespace
}  // namespace workstation

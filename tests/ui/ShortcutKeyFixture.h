#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "diagnostics/TGLog.h"
#include "platform/fakes/FakePlatform.h"
#include "tests/support/SingletonScope.h"
#include "ui/TGShortcutKeyTableDelegate.h"

/// A process on the fakes in which alice has a Preferences folder, with the shortcut key manager installed,
/// and four keys: 0 is the letter a, 1 the letter s, 2 Page Up and 3 a dead key. Whoever serves the main
/// thread there lets ten milliseconds pass.
class ShortcutKeyFixture : public testing::Test {
 protected:
  static constexpr const char* kFolder = "/Users/alice/Library/Preferences";
  static constexpr const char* kFile = "/Users/alice/Library/Preferences/com.vordenworks.shortcutkeys.plist";
  static constexpr const char* kManager =
      "/Library/Application Support/Vordenworks/Shared Resources/TGShortcutKeyManager";
  static constexpr const char* kOurs = "com.vordenworks.Quillmend";

  using PropertyList = foundation::PropertyList;

  ShortcutKeyFixture() {
    installManager();
    system.files.makeFolder(kFolder);
    system.mainThread.whenServing = [this] { system.clock.advance(std::chrono::milliseconds(10)); };
    system.keyboardLayout.keys = {{0, {0, "a"}}, {1, {0, "s"}}, {2, {0, "\xEF\x9C\xAC"}}, {3, {0, ""}}};
  }

  void TearDown() override { TGLog::finishWriting(); }

  void installManager() {
    system.files.makeFile(kManager);
    system.subprocesses.executables.insert(kManager);
  }
  void removeManager() { EXPECT_TRUE(system.files.remove(kManager)); }

  static PropertyList entry(const std::string& bundleId, const std::string& commandId, int keyCode = 1,
                            int modifiers = 0x1300) {
    return PropertyList::Dictionary{
        {"bundleid", bundleId}, {"keycode", keyCode}, {"modifiers", modifiers}, {"commandid", commandId}};
  }

  void writeBytes(const std::string& bytes) { system.files.makeFile(kFile, bytes); }
  void writeRoot(const PropertyList& root,
                 platform::PropertyListFormat format = platform::PropertyListFormat::xml) {
    writeBytes(system.propertyLists.serialize(root, format).value());
  }
  void writeEntries(PropertyList::Array entries) {
    writeRoot(PropertyList::Dictionary{{"watchlist", std::move(entries)}});
  }

  [[nodiscard]] PropertyList root() { return platform::readPropertyList(kFile).value(); }
  [[nodiscard]] PropertyList::Array entries() {
    const PropertyList file = root();
    const PropertyList* const list = file.find("watchlist");
    return list == nullptr ? PropertyList::Array() : *list->as<PropertyList::Array>();
  }

  [[nodiscard]] std::vector<std::string> filesInFolder() {
    return system.files.contentsOfDirectory(kFolder).value();
  }
  [[nodiscard]] std::vector<std::string> messages() const { return system.systemConsole.messages(); }

  fakes::FakePlatform system;

 private:
  foundation::SingletonScope<TGLog> log_;
  foundation::SingletonScope<TGShortcutKeyTableDelegate> delegate_;
};

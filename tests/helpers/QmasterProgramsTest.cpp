#include "helpers/QmasterPrograms.h"

#include <gmock/gmock.h>

namespace helpers {
namespace {

TEST(QmasterRole, TheDaemonsAreKnownByTheirPlace) {
  EXPECT_EQ(qmasterRole("/usr/sbin/qmasterd"), QmasterRole::daemon);
  EXPECT_EQ(qmasterRole("/usr/sbin/qmasterqd"), QmasterRole::queue);
  EXPECT_EQ(qmasterRole("/usr/sbin/qmasterca"), QmasterRole::controller);
}

TEST(QmasterRole, TheirOwnFoldersHoldControllers) {
  for (const char* path :
       {"/Library/Application Support/Apple Qmaster/qmasterconfig",
        "/Library/Frameworks/Compressor.framework/Versions/A/Resources/CompressorTranscoder.bundle/Contents/"
        "MacOS/"
        "CompressorTranscoder",
        "/Library/Frameworks/Qmaster.framework/Resources/helper",
        "/Library/Frameworks/MediaServerAPI.framework/x",
        "/Applications/Compressor.app/Contents/PlugIns/Compressor/CompressorKit.bundle/servicecontroller",
        "/Volumes/Old/Anywhere/Compressor.app/Contents/PlugIns/Compressor/CompressorKit.bundle/Contents/"
        "MacOS/x"}) {
    EXPECT_EQ(qmasterRole(path), QmasterRole::controller) << path;
  }
}

TEST(QmasterRole, DaemonsInsideCompressor4HaveTheRoleOfTheirName) {
  const std::string kit = "/Applications/Compressor.app/Contents/PlugIns/Compressor/CompressorKit.bundle/";
  EXPECT_EQ(qmasterRole(kit + "qmasterd"), QmasterRole::daemon);
  EXPECT_EQ(qmasterRole(kit + "qmasterqd"), QmasterRole::queue);
  EXPECT_EQ(qmasterRole(kit + "qmasterca"), QmasterRole::controller);
}

TEST(QmasterRole, ApplicationsAndTheStatusMenuAreClients) {
  for (const char* path : {"/Applications/Compressor.app/Contents/MacOS/Compressor",
                           "/Applications/Final Cut Studio/Compressor.app/Contents/MacOS/Compressor",
                           "/Applications/Utilities/Batch Monitor.app/Contents/MacOS/Batch Monitor",
                           "/Applications/Utilities/Apple Qmaster.app/Contents/MacOS/Apple Qmaster",
                           "/Applications/Apple Qadministrator.app/Contents/MacOS/Apple Qadministrator",
                           "/Users/alice/Applications/Compressor.app/Contents/MacOS/Compressor",
                           "/Library/PreferencePanes/Apple "
                           "Qmaster.prefPane/Contents/Resources/QmasterStatusMenu.app/Contents/MacOS/"
                           "QmasterStatusMenu"}) {
    EXPECT_EQ(qmasterRole(path), QmasterRole::client) << path;
  }
}

TEST(QmasterRole, ThePreferencesToolIsNeverStopped) {
  for (const char* path :
       {"/usr/sbin/qmasterprefs", "/Library/Application Support/Apple Qmaster/qmasterprefs",
        "/Applications/Compressor.app/Contents/PlugIns/Compressor/CompressorKit.bundle/qmasterprefs"}) {
    EXPECT_EQ(qmasterRole(path), std::nullopt) << path;
  }
}

TEST(QmasterRole, ANameAloneMeansNothing) {
  for (const char* path :
       {"", "qmasterd", "/usr/bin/qmasterd", "/tmp/usr/sbin/qmasterd", "/usr/sbin/qmasterd2",
        "/usr/sbin/qmasterd/x", "/home/x/Compressor",
        "/Users/x/Desktop/Compressor.app/Contents/MacOS/Compressor",
        "/Applications/a/b/Compressor.app/Contents/MacOS/Compressor", "/Applications/Compressor.app",
        "/Applications/MyCompressor.app/Contents/MacOS/Compressor",
        "/Library/Application Support/Apple Qmaster2/x", "/Library/Application Support/Apple Qmaster",
        "/tmp/Library/Frameworks/Qmaster.framework/x", "/tmp/Apple Qmaster.prefPane/x",
        "/PreferencePanes/Apple Qmaster.prefPane/x", "/tmp/PreferencePanes/Apple Qmaster.prefPane/x",
        "/Compressor.app/Contents/MacOS/Compressor"}) {
    EXPECT_EQ(qmasterRole(path), std::nullopt) << path;
  }
}

}  // namespace
}  // namespace helpers

#include "workstation/Components.h"

#include "workstation/Installer.h"

namespace workstation {
namespace {

using Kind = Component::Kind;

std::string local(std::string_view name) {
  return "/Library/" + std::string(name);
}

std::string support(std::string_view domain, std::string_view name) {
  return std::string(domain) + '/' + std::string(name);
}

/// What both generations of Compressor 3 bring.
std::vector<Component> sharedComponents() {
  return {{std::string(batchMonitor), Kind::application, true},
          {support(localSupport, "Apple Qmaster"), Kind::folder, true},
          {support(localSupport, "Apple Qmaster/qmasterservices.plist"), Kind::propertyList, true},
          {support(localSupport, "Apple Qmaster/qmasterconfig"), Kind::propertyList, true},
          {local("PreferencePanes/Apple Qmaster.prefPane"), Kind::preferencePane},
          {local("Frameworks/AECore.framework"), Kind::framework},
          {local("Frameworks/Compressor.framework"), Kind::framework},
          {local("Frameworks/MediaServerAPI.framework"), Kind::framework},
          {local("Frameworks/Qmaster.framework"), Kind::framework},
          {"/System/Library/PrivateFrameworks/BrowserKit.framework", Kind::framework},
          {"/System/Library/PrivateFrameworks/ProKit.framework", Kind::framework},
          {"/usr/sbin/qmasterca", Kind::executable},
          {"/usr/sbin/qmasterd", Kind::executable},
          {"/usr/sbin/qmasterprefs", Kind::executable},
          {"/usr/sbin/qmasterqd", Kind::executable}};
}

std::vector<Component> earlyComponents() {
  return {{std::string(startupItem), Kind::folder},
          {std::string(startupItem) + "/Qmaster", Kind::executable},
          {std::string(startupItem) + "/StartupParameters.plist", Kind::propertyList},
          {"/System/Library/PrivateFrameworks/Helium.framework", Kind::framework},
          {"/usr/local/lib/libhelium_mac.a", Kind::file}};
}

std::vector<Component> lateComponents() {
  return {{support(localSupport, "ProMediaIO"), Kind::folder, true},
          {std::string(launchdJob), Kind::propertyList}};
}

}  // namespace

std::vector<Component> systemComponents(std::string_view majorMinor) {
  if (majorMinor != "3.0" && majorMinor != "3.5") return {};
  auto components = sharedComponents();
  const auto more = majorMinor == "3.0" ? earlyComponents() : lateComponents();
  components.insert(components.end(), more.begin(), more.end());
  return components;
}

const std::vector<std::string>& cacheFiles() {
  static const std::vector<std::string> files{
      "Apple Qmaster/servicecontroller:com.apple.stomp.transcoderx.plist",
      "Apple Qmaster/servicecontroller:com.apple.qmaster.executor.plist",
      "Apple Qmaster/servicecontroller:com.apple.stomp.transcoder.stomp.plist",
      "Apple Qmaster/jobcontroller:com.apple.qmaster.cluster.admin.plist",
      "Apple Qmaster/jobcontroller:com.apple.compressor.cluster.admin.plist",
      "Apple Qmaster/requestprocessor:com.apple.qmaster.contentcontroller.plist",
      "Apple Qmaster/requestprocessor:com.apple.compressor.contentcontroller.plist",
      "Apple Qmaster/contentcontroller:com.apple.qmaster.contentagent.plist"};
  return files;
}

std::vector<std::string> spoolFolders(bool compressorFour) {
  if (!compressorFour) return {"/private/var/spool/qmaster"};
  return {support(userSupport, "Apple Qmaster/Storage"),
          "/Users/Shared/Library/Application Support/Apple Qmaster/Storage",
          support(localSupport, "Apple Qmaster/Storage")};
}

std::vector<std::string> historyFolders(bool compressorFour) {
  if (!compressorFour) return {support(userSupport, "Compressor/History")};
  return {support(userSupport, "Apple Qmaster/History"), support(userSupport, "Compressor/History/V4")};
}

std::vector<std::string> preferenceFiles(bool compressorFour) {
  if (compressorFour) return {"com.apple.Compressor.plist"};
  return {"com.apple.compressor.Compressor.plist", "com.apple.Compressor.CompressorSharedService.plist",
          "com.apple.BatchMonitor.plist"};
}

void putSoftwareUpdate(const Volume& volume, const std::string& path, const std::string& version) {
  Installer(volume).bundle({.path = path,
                            .identifier = "com.vordenworks.SoftwareUpdate",
                            .executable = "Vordenworks Software Update",
                            .version = version});
}

std::vector<std::string> standInPlaces(const Volume& volume) {
  std::vector<std::string> places{"/bin/launchctl", "/usr/bin/open", "/usr/sbin/scutil",
                                  std::string(startupItem) + "/Qmaster"};
  for (const char* tool : {"qmasterca", "qmasterd", "qmasterprefs", "qmasterqd"}) {
    places.push_back(std::string("/usr/sbin/") + tool);
    for (const char* compressor :
         {"/Applications/Compressor.app/", "/Applications/Final Cut Studio/Compressor.app/"}) {
      places.push_back(compressor + std::string(kitFolder) + '/' + tool);
    }
  }
  std::erase_if(places, [&](const std::string& place) {
    std::error_code unreachable;
    return !std::filesystem::exists(volume.host(place), unreachable);
  });
  return places;
}

}  // namespace workstation

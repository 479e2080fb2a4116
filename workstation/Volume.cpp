#include "workstation/Volume.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <set>
#include <stdexcept>

#include "workstation/Accounts.h"
#include "workstation/Components.h"
#include "workstation/Installer.h"
#include "workstation/Layout.h"
#include "workstation/RecordLine.h"

namespace workstation {
namespace {

namespace fs = std::filesystem;
using foundation::PropertyList;

constexpr Ownership administrators{0, adminID, 0775};
constexpr Ownership administratorsFile{0, adminID, 0664};
constexpr Ownership aliceFolder{aliceID, staffID, 0755};
constexpr Ownership aliceFile{aliceID, staffID, 0644};
constexpr Ownership open{0, 0, 0777};
constexpr Ownership everybodysFile{0, 0, 0666};

const std::vector<Account>& people() {
  static const std::vector<Account> accounts{
      {"alice", aliceID, staffID, "Alice Editor", "/Users/alice", "/bin/sh"},
      {"bob", bobID, staffID, "Bob Colourist", "/Users/bob", "/bin/sh"}};
  return accounts;
}

/// A leading tilde in a services file is alice's home.
std::string expanded(const std::string& path) {
  return path.starts_with('~') ? "/Users/alice" + path.substr(1) : path;
}

/// One making of a volume: the plan's parts in order.
class Making {
 public:
  Making(const Volume& volume, const Plan& plan) : volume_(volume), plan_(plan), put_(volume) {}

  void run() const;

 private:
  [[nodiscard]] bool hasFamily(bool four) const;
  [[nodiscard]] bool hasVersion(std::string_view majorMinor) const;
  [[nodiscard]] bool hasEarlyQmaster() const { return hasVersion("3.0") || hasVersion("3.5"); }
  [[nodiscard]] std::string consoleAccount() const;
  [[nodiscard]] std::vector<std::string> allSpoolFolders() const;
  [[nodiscard]] std::string daemonProgram() const;
  [[nodiscard]] std::string processes() const;

  void refuseContradictions() const;
  void systemFolders() const;
  void accounts() const;
  void homes() const;
  void tools() const;
  void state() const;
  void values() const;
  void compressors() const;
  void compressorFour(const CompressorCopy& copy) const;
  void component(const Component& component) const;
  void propertyListComponent(const std::string& path, Ownership ownership) const;
  void launchdJobFile() const;
  void userFiles(const Account& person) const;
  void caches() const;
  void history() const;
  void services() const;
  void servicesFile(const std::string& path, const std::optional<std::string>& spool,
                    const std::string& usual, Encoding encoding, Ownership ownership) const;
  void spools() const;

  const Volume& volume_;
  const Plan& plan_;
  Installer put_;
};

bool Making::hasFamily(bool four) const {
  return std::any_of(plan_.compressors.begin(), plan_.compressors.end(),
                     [four](const CompressorCopy& copy) { return copy.isFour() == four; });
}

bool Making::hasVersion(std::string_view majorMinor) const {
  return std::any_of(plan_.compressors.begin(), plan_.compressors.end(),
                     [&](const CompressorCopy& copy) { return copy.majorMinor() == majorMinor; });
}

void Making::refuseContradictions() const {
  std::set<std::string> places;
  for (const auto& copy : plan_.compressors) {
    if (copy.majorMinor().empty()) throw std::invalid_argument("no version: " + copy.version);
    if (!places.insert(copy.usualPath()).second) {
      throw std::invalid_argument("two copies at " + copy.usualPath());
    }
  }
  if (fs::exists(volume_.folder()) && !fs::is_empty(volume_.folder())) {
    throw std::invalid_argument(volume_.folder().string() + " is not empty");
  }
}

void Making::systemFolders() const {
  fs::create_directories(volume_.folder());
  put_.folder("/");
  for (const char* path : {"/Applications", "/Applications/Utilities", "/Library",
                           "/Library/Application Support", "/Library/Preferences"}) {
    put_.folder(path, administrators);
  }
  for (const char* path : {"/Library/Caches",
                           "/Library/Documentation",
                           "/Library/Frameworks",
                           "/Library/LaunchDaemons",
                           "/Library/Logs",
                           "/Library/PreferencePanes",
                           "/Library/StartupItems",
                           "/System/Library/PrivateFrameworks",
                           "/Users",
                           "/Volumes",
                           "/bin",
                           "/sbin",
                           "/usr/bin",
                           "/usr/lib",
                           "/usr/libexec",
                           "/usr/local/lib",
                           "/usr/sbin",
                           "/usr/share",
                           "/private/etc",
                           "/private/var/db",
                           "/private/var/log",
                           "/private/var/run",
                           "/private/var/spool"}) {
    put_.folder(path);
  }
  put_.folder("/Users/Shared", {0, 0, 01777});
  put_.folder("/private/tmp", {0, 0, 01777});
  put_.folder("/private/var/tmp", {0, 0, 01777});
  put_.folder("/private/var/root", {0, 0, 0750});
  for (const char* name : {"etc", "var", "tmp"})
    put_.link(std::string("/") + name, std::string("private/") + name);
  if (plan_.logFolder) put_.folder("/Library/Logs/Vordenworks", administrators);
}

void Making::accounts() const {
  std::string passwd =
      passwdLine({"root", 0, 0, "System Administrator", "/var/root", "/bin/sh"}) +
      passwdLine({"daemon", 1, 1, "System Services", "/var/root", "/usr/bin/false"}) +
      passwdLine({std::string(greeterAccount), 117, 117, "Login window", "/var/empty", "/usr/bin/false"}) +
      passwdLine({"nobody", 65534, 65534, "Unprivileged User", "/var/empty", "/usr/bin/false"});
  for (const auto& person : people()) passwd += passwdLine(person);
  put_.file("/private/etc/passwd", passwd);
  const std::string zero = plan_.wheelGroup ? "wheel" : "root";
  put_.file("/private/etc/group", zero +
                                      ":*:0:root\ndaemon:*:1:root\nstaff:*:20:root\nadmin:*:80:root,alice\n" +
                                      std::string(greeterAccount) + ":*:117:\nnogroup:*:65534:\n");
  put_.file("/private/var/run/utmp", utmpFor(consoleAccount()), {0, 0, 0664});
}

std::string Making::consoleAccount() const {
  return plan_.consoleUser == "greeter" ? std::string(greeterAccount) : plan_.consoleUser;
}

void Making::homes() const {
  for (const auto& person : people()) {
    const Ownership shared{person.user, person.group, 0755};
    const Ownership closed{person.user, person.group, 0700};
    put_.folder(person.home, shared);
    for (const char* name : {"Applications", "Desktop", "Documents", "Library", "Library/Application Support",
                             "Library/Caches", "Library/Logs", "Library/Preferences", "Movies"}) {
      put_.folder(person.home + '/' + name, closed);
    }
    if (plan_.trashFolder) put_.folder(person.home + "/.Trash", closed);
    userFiles(person);
  }
}

void Making::userFiles(const Account& person) const {
  const Ownership own{person.user, person.group, 0644};
  put_.file(person.home + "/Documents/Cut list.txt", "scene 1, take 3\n", own);
  for (const bool four : {false, true}) {
    if (!plan_.preferences || !hasFamily(four)) continue;
    for (const auto& name : preferenceFiles(four)) {
      put_.propertyList(person.home + "/Library/Preferences/" + name,
                        PropertyList::Dictionary{{"lastUsedCluster", "This Computer"}, {"windowCount", 2}},
                        Encoding::binary, own);
    }
  }
  if (!plan_.layout || plan_.compressors.empty()) return;
  const auto support = person.home + "/Library/Application Support/";
  const Ownership folder{person.user, person.group, 0755};
  put_.folder(support + "Compressor", folder);
  put_.folder(support + "Compressor/Layouts", folder);
  put_.file(support + std::string(layoutFile), "window layout\n", own);
}

void Making::tools() const {
  for (const char* path : {"/bin/launchctl", "/usr/bin/open", "/usr/sbin/scutil"}) put_.standIn(path);
}

void Making::state() const {
  put_.folder(std::string(stateFolder), open);
  put_.folder(std::string(valuesFolder), open);
  for (const auto file : {callsFile, busFile, visitsFile, mannersFile}) {
    put_.file(std::string(file), "", everybodysFile);
  }
  put_.file(std::string(processesFile), processes(), everybodysFile);
  values();
}

void Making::values() const {
  const auto set = [&](const std::string& key, const std::string& text) {
    put_.file(std::string(valuesFolder) + '/' + key, text + '\n', everybodysFile);
  };
  if (plan_.computerName) set("ComputerName", *plan_.computerName);
  if (plan_.localHostName) set("LocalHostName", *plan_.localHostName);
  for (const bool four : {false, true}) {
    if (!hasFamily(four)) continue;
    const std::string family = four ? "qmaster4." : "qmaster.";
    set(family + "sharing", plan_.qmasterRunning ? "on" : "off");
    set(family + "jobs", "2");
    set(family + "resets", "0");
  }
  const bool hasJob = hasVersion("3.5") || hasFamily(true);
  if (hasJob && plan_.qmasterRunning) set("launchd." + std::string(launchdLabel), std::string(launchdJob));
}

/// The system-wide daemon where a Compressor 3 brought it, else the one inside Compressor 4.
std::string Making::daemonProgram() const {
  if (hasEarlyQmaster()) return "/usr/sbin/qmasterd";
  for (const auto& copy : plan_.compressors) {
    if (copy.isFour()) return copy.usualPath() + '/' + std::string(kitFolder) + "/qmasterd";
  }
  return {};
}

std::string Making::processes() const {
  std::string lines;
  const auto add = [&](const std::string& user, const std::string& path) {
    lines += user + '\t' + path + '\n';
  };
  const auto daemon = daemonProgram();
  if (plan_.qmasterRunning && !daemon.empty()) {
    add("root", daemon);
    add("root", (fs::path(daemon).parent_path() / "qmasterca").string());
  }
  for (const auto& copy : plan_.compressors) {
    if (copy.running) add("alice", copy.usualPath() + "/Contents/MacOS/Compressor");
  }
  if (plan_.batchMonitorRunning) add("alice", std::string(batchMonitor) + "/Contents/MacOS/Batch Monitor");
  if (plan_.statusMenuRunning) add("alice", std::string(statusMenu) + "/Contents/MacOS/QmasterStatusMenu");
  return lines;
}

void Making::compressors() const {
  for (const auto& copy : plan_.compressors) {
    const bool late = copy.majorMinor() == "3.5";
    const auto parent = fs::path(copy.usualPath()).parent_path().string();
    if (!fs::exists(volume_.host(parent))) put_.folder(parent, administrators);
    put_.bundle({.path = copy.usualPath(),
                 .identifier = copy.bundleIdentifier(),
                 .executable = "Compressor",
                 .version = copy.version,
                 .infoEncoding = copy.isFour() ? Encoding::binary : Encoding::xml,
                 .versionEncoding = late ? Encoding::binary : Encoding::xml,
                 .ownership = administrators});
    for (const auto& part : systemComponents(copy.majorMinor())) component(part);
    if (copy.isFour()) compressorFour(copy);
  }
}

void Making::compressorFour(const CompressorCopy& copy) const {
  const auto kit = copy.usualPath() + '/' + std::string(kitFolder);
  for (const char* tool : {"qmasterprefs", "qmasterd", "qmasterqd", "qmasterca"}) {
    put_.standIn(kit + '/' + tool, administrators);
  }
  if (!fs::exists(volume_.host(launchdJob))) launchdJobFile();
}

void Making::component(const Component& component) const {
  const auto& path = component.path;
  const auto ownership = component.adminWritable ? administrators : Ownership{};
  switch (component.kind) {
    case Component::Kind::folder:
      return put_.folder(path, ownership);
    case Component::Kind::file:
      return put_.file(path, "!<arch>\n");
    case Component::Kind::executable:
      return put_.standIn(path);
    case Component::Kind::propertyList:
      return propertyListComponent(path,
                                   component.adminWritable ? administratorsFile : Ownership{0, 0, 0644});
    case Component::Kind::framework:
      if (!fs::exists(volume_.host(path))) put_.framework(path);
      return;
    case Component::Kind::application:
      return put_.bundle({.path = path,
                          .identifier = "com.apple.BatchMonitor",
                          .executable = "Batch Monitor",
                          .version = "1.5",
                          .ownership = ownership});
    case Component::Kind::preferencePane:
      put_.bundle(
          {.path = path, .identifier = "com.apple.qmaster.preferencepane", .type = "BNDL", .version = "3.5"});
      put_.bundle({.path = std::string(statusMenu),
                   .identifier = "com.apple.qmaster.statusmenu",
                   .executable = "QmasterStatusMenu",
                   .version = "3.5"});
  }
}

void Making::propertyListComponent(const std::string& path, Ownership ownership) const {
  if (path == launchdJob) return launchdJobFile();
  if (path.ends_with("qmasterservices.plist")) return;  // has a text of its own
  const PropertyList::Dictionary contents{{"Description", "Qmaster distributed processing"},
                                          {"Provides", PropertyList::Array{"Qmaster"}},
                                          {"OrderPreference", "Late"}};
  put_.propertyList(path, contents, Encoding::xml, ownership);
}

void Making::launchdJobFile() const {
  const PropertyList::Dictionary job{{"Label", std::string(launchdLabel)},
                                     {"ProgramArguments", PropertyList::Array{daemonProgram()}},
                                     {"RunAtLoad", true},
                                     {"KeepAlive", true}};
  put_.propertyList(std::string(launchdJob), job, Encoding::xml);
}

void Making::caches() const {
  for (const bool four : {false, true}) {
    if (!plan_.caches || !hasFamily(four)) continue;
    const std::string folder = std::string(four ? userSupport : localSupport) + '/';
    for (const auto& name : cacheFiles()) {
      put_.propertyList(std::string(folder).append(name), PropertyList::Dictionary{{"cached", true}},
                        Encoding::xml, four ? aliceFile : administratorsFile);
    }
  }
}

void Making::history() const {
  for (const bool four : {false, true}) {
    if (!plan_.history || !hasFamily(four)) continue;
    for (const auto& folder : historyFolders(four)) {
      const auto parent = fs::path(folder).parent_path().string();
      put_.folder(parent, aliceFolder);
      put_.folder(folder, aliceFolder);
      for (const char* name : {"/2011-03-01 Trailer.history", "/2011-03-02 Dailies.history"}) {
        put_.file(folder + name, "submitted, finished\n", aliceFile);
      }
    }
  }
}

void Making::servicesFile(const std::string& path, const std::optional<std::string>& spool,
                          const std::string& usual, Encoding encoding, Ownership ownership) const {
  PropertyList::Dictionary administration{{"Enabled", true}};
  if (!spool || !spool->empty()) {
    administration.emplace_back("UserPrefs", PropertyList::Dictionary{{"Storage", spool.value_or(usual)}});
  }
  const PropertyList::Dictionary services{{"jobcontroller:com.apple.qmaster.cluster.admin", administration},
                                          {"servicecontroller:com.apple.qmaster.executor",
                                           PropertyList::Dictionary{{"Enabled", true}, {"Instances", 2}}}};
  put_.propertyList(path, services, encoding, ownership);
}

void Making::services() const {
  const std::string name = "/Apple Qmaster/qmasterservices.plist";
  if (hasFamily(false)) {
    servicesFile(std::string(localSupport) + name, plan_.configuredSpool, "/var/spool/qmaster", Encoding::xml,
                 administratorsFile);
  }
  if (hasFamily(true)) {
    put_.folder(std::string(userSupport) + "/Apple Qmaster", aliceFolder);
    servicesFile(std::string(userSupport) + name, plan_.configuredFourSpool,
                 "~/Library/Application Support/Apple Qmaster/Storage", Encoding::binary, aliceFile);
  }
}

std::vector<std::string> Making::allSpoolFolders() const {
  std::vector<std::string> folders;
  const auto add = [&](const std::string& folder) {
    const auto place = expanded(folder);
    const bool isNew = std::find(folders.begin(), folders.end(), place) == folders.end();
    if (place.starts_with('/') && isNew) folders.push_back(place);
  };
  for (const bool four : {false, true}) {
    if (!hasFamily(four)) continue;
    for (const auto& folder : spoolFolders(four)) add(folder);
    const auto& configured = four ? plan_.configuredFourSpool : plan_.configuredSpool;
    if (configured && *configured != "/var/spool/qmaster") add(*configured);
  }
  return folders;
}

void Making::spools() const {
  const auto folders = allSpoolFolders();
  for (std::size_t i = 0; i < folders.size(); ++i) {
    const bool alices = folders[i].starts_with("/Users/alice/");
    const auto parent = fs::path(folders[i]).parent_path().string();
    if (alices && !fs::exists(volume_.host(parent))) put_.folder(parent, aliceFolder);
    put_.folder(folders[i], alices ? aliceFolder : open);
    const auto share = plan_.spoolFiles / folders.size() + (i < plan_.spoolFiles % folders.size() ? 1 : 0);
    put_.manyFiles(folders[i], "job-", share, alices ? aliceFile : Ownership{0, 0, 0644});
  }
}

void Making::run() const {
  const auto mask = ::umask(022);
  refuseContradictions();
  systemFolders();
  accounts();
  homes();
  tools();
  compressors();
  caches();
  history();
  services();
  spools();
  if (plan_.shortcutKeyManager) put_.standIn(std::string(shortcutKeyManager));
  if (!plan_.softwareUpdate.empty()) {
    putSoftwareUpdate(volume_, std::string(softwareUpdate), plan_.softwareUpdate);
  }
  state();
  for (const auto& damage : plan_.damage) applyDamage(volume_.folder(), damage);
  ::umask(mask);
}

}  // namespace

std::string CompressorCopy::majorMinor() const {
  const auto parts = split(version, '.');
  return parts.size() < 2 ? std::string() : parts[0] + '.' + parts[1];
}

bool CompressorCopy::isFour() const {
  return std::strtol(version.c_str(), nullptr, 10) >= 4;
}

std::string CompressorCopy::bundleIdentifier() const {
  return isFour() ? "com.apple.Compressor" : "com.apple.compressor.Compressor";
}

std::string CompressorCopy::usualPath() const {
  if (!path.empty()) return path;
  return isFour() ? "/Applications/Compressor.app" : "/Applications/Final Cut Studio/Compressor.app";
}

fs::path Volume::host(std::string_view inside) const {
  constexpr std::string_view privateFolders[] = {"/etc", "/var", "/tmp"};
  std::string path(inside);
  for (const auto folder : privateFolders) {
    if (path == folder || path.starts_with(std::string(folder) + '/')) path.insert(0, "/private");
  }
  return path == "/" ? folder_ : folder_ / path.substr(1);
}

bool Volume::looksLikeMac() const {
  return fs::is_directory(folder_ / "Library") || fs::is_directory(folder_ / "System") ||
         fs::is_directory(folder_ / "Users");
}

void makeVolume(const fs::path& folder, const Plan& plan) {
  const Volume volume(folder);
  Making(volume, plan).run();
}

fs::path programsFolder() {
  const char* chosen = std::getenv("WORKSTATION_PROGRAMS");
  return chosen != nullptr ? fs::path(chosen) : fs::path(WORKSTATION_PROGRAMS_FOLDER);
}

}  // namespace workstation

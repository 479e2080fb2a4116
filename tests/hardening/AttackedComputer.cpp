#include "tests/hardening/AttackedComputer.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "tests/support/TemporaryFolder.h"

namespace hardening {
namespace {

constexpr const char* kHelpers = "/helpers";
constexpr const char* kVerbs = "/verbs";
constexpr const char* kRecording = "/recording";
constexpr time_t kLongAgo = 1'000'000'000;

void require(bool done, const std::string& what) {
  if (!done) throw std::runtime_error("cannot make the attacked computer: " + what);
}

void mountAt(const char* source, const std::string& place, const char* type, unsigned long flags,
             const char* options = nullptr) {
  ::mkdir(place.c_str(), 0755);
  require(::mount(source, place.c_str(), type, flags, options) == 0, place);
}

/// Before anything is opened, and once for a process: what a test mounts is seen by nobody else.
void enterOwnMountNamespace() {
  static const bool entered =
      ::unshare(CLONE_NEWNS) == 0 && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
  require(entered, "a mount namespace");
}

std::string makeTop() {
  enterOwnMountNamespace();
  std::string top = std::filesystem::temp_directory_path() / "quillmend-attacked-XXXXXX";
  require(::mkdtemp(top.data()) != nullptr, "a folder");
  return std::filesystem::canonical(top);
}

/// Nothing for what does not count as a file.
std::string keyOf(const std::filesystem::directory_entry& entry) {
  std::error_code ignored;
  const auto status = entry.symlink_status(ignored);
  if (std::filesystem::is_regular_file(status)) return support::contentOf(entry.path());
  if (std::filesystem::is_symlink(status))
    return "link to " + std::filesystem::read_symlink(entry, ignored).string();
  return std::filesystem::is_fifo(status) ? "FIFO " + entry.path().filename().string() : "";
}

void addFiles(const std::string& folder, Snapshot& found) {
  std::error_code ignored;
  for (auto entry = std::filesystem::recursive_directory_iterator(folder, ignored); entry != end(entry);
       entry.increment(ignored)) {
    const std::string place = entry->path().string();
    const std::string key = keyOf(*entry);
    if (key.empty() || place.find("/.copying-") != std::string::npos) continue;
    const bool isTrashed = place.find("/.Trash") != std::string::npos;
    std::string& words = found[key];
    words += (words.empty() ? "" : " and ") + std::string(isTrashed ? "in the trash: " : "left: ");
    words += described(place, Changed::ignored);
  }
}

}  // namespace

AttackedComputer::AttackedComputer() {
  if (::geteuid() != 0) return;
  top_ = makeTop();
  mountAt("attacked", top_, "tmpfs", 0, "mode=0755");
  makeSystem();
  makeOutside();
  makeFolder("/Users/alice");
  for (const char* volume : {"/Users/alice/disk", "/Users/alice/media"}) {
    mountAt("attacked", path(volume), "tmpfs", 0, "mode=0755");
  }
  restore();
}

AttackedComputer::~AttackedComputer() {
  if (top_.empty()) return;
  ::umount2(top_.c_str(), MNT_DETACH);
  ::rmdir(top_.c_str());
}

void AttackedComputer::makeSystem() const {
  mountAt("/usr", path("/usr"), nullptr, MS_BIND | MS_REC);
  mountAt("/proc", path("/proc"), nullptr, MS_BIND | MS_REC);
  mountAt(HELPERS_FOLDER, path(kHelpers), nullptr, MS_BIND);
  mountAt(VERBS_FOLDER, path(kVerbs), nullptr, MS_BIND);
  mountAt(RECORDING_FOLDER, path(kRecording), nullptr, MS_BIND);
  for (const char* folder : {"/bin", "/lib", "/lib64"}) {
    if (std::filesystem::exists(folder))
      std::filesystem::create_symlink(std::string("usr") + folder, path(folder));
  }
  for (const char* folder : {"/etc", "/dev", "/var", "/var/root", "/Users", "/outside"}) {
    ::mkdir(path(folder).c_str(), 0755);
  }
  ::chmod(path("/var/root").c_str(), 0700);
  ::mknod(path("/dev/null").c_str(), S_IFCHR | 0666, makedev(1, 3));
  std::ofstream(path("/etc/passwd"))
      << "root:x:0:0::/var/root:/bin/sh\nalice:x:4201:4201::/Users/alice:/bin/sh\n"
         "bob:x:4300:4300::/Users/bob:/bin/sh\n";
  std::ofstream(path("/etc/group")) << "wheel:x:0:\nalice:x:4201:\n";
}

void AttackedComputer::makeOutside() const {
  for (const char* place : {"/outside/alice/jobs/tree", "/outside/alice/.Trash", "/outside/trash"}) {
    std::filesystem::create_directories(path(place));
  }
  fill("/outside/alice/jobs/tree", 0);
  makeFile("/outside/secret", 0600);
  own("/outside/secret", 0);
}

void AttackedComputer::makeFile(const std::string& place, mode_t mode) const {
  std::ofstream(path(place)) << "the content of " + place;
  ::setxattr(path(place).c_str(), "trusted.of", place.data(), place.size(), 0);
  own(place);
  ::chmod(path(place).c_str(), mode);
  const timespec modified{kLongAgo + static_cast<time_t>(place.size()), 123};
  const timespec times[] = {modified, modified};
  ::utimensat(AT_FDCWD, path(place).c_str(), times, 0);
}

void AttackedComputer::makeFolder(const std::string& place, mode_t mode) const {
  ::mkdir(path(place).c_str(), mode);
  ::chmod(path(place).c_str(), mode);
  own(place);
}

void AttackedComputer::own(const std::string& place, uid_t user) const {
  require(::lchown(path(place).c_str(), user, user) == 0, place);
}

void AttackedComputer::fill(const std::string& place, uid_t user) const {
  makeFolder(place + "/sub", 0750);
  for (const char* name : {"/file", "/sub/inner", "/sub/second"}) {
    makeFile(place + name, 0640);
    own(place + name, user);
  }
  own(place + "/sub", user);
}

void AttackedComputer::restore() const {
  clear(path("/Users/alice"));
  clear(path("/var/root"));
  clear(path("/.Trashes"));
  ::rmdir(path("/.Trashes").c_str());
  own("/Users/alice");
  ::chmod(path("/Users/alice").c_str(), 0755);
  for (const char* folder : {"/jobs", "/jobs/tree", "/disk", "/media", "/media/tree"}) {
    makeFolder(std::string("/Users/alice") + folder);
  }
  makeFolder("/Users/alice/.Trash", 0700);
  for (const char* place : {"/jobs/tree", "/disk", "/media/tree"})
    fill(std::string("/Users/alice") + place, kAlice);
  makeFile("/Users/alice/media/.Trashes");
}

Snapshot AttackedComputer::outside() const {
  Snapshot all;
  for (const char* place : {"/outside", "/etc", "/var"}) {
    for (auto& [name, words] : snapshotOf(path(place))) all[std::string(place) + "/" + name] = words;
  }
  return all;
}

Snapshot AttackedComputer::files() const {
  Snapshot found;
  for (const char* place : {"/Users/alice", "/.Trashes", "/var/root"}) addFiles(path(place), found);
  return found;
}

std::vector<std::string> AttackedComputer::mixedFiles() const {
  std::vector<std::string> mixed;
  std::error_code ignored;
  for (auto entry = std::filesystem::recursive_directory_iterator(path("/Users/alice"), ignored);
       entry != end(entry); entry.increment(ignored)) {
    const std::string place = entry->path().string();
    struct stat status {};
    if (::lstat(place.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) continue;
    if (place.find("/.copying-") != std::string::npos) continue;
    const bool isOfRoot = support::contentOf(place).starts_with("the content of /outside/");
    if (isOfRoot != (status.st_uid == 0)) mixed.push_back(place + ": " + described(place, Changed::ignored));
  }
  return mixed;
}

void AttackedComputer::enter() const {
  if (::chroot(top_.c_str()) != 0 || ::chdir("/") != 0) ::_exit(125);
}

Finished AttackedComputer::run(const std::vector<std::string>& command, const OnCall& onCall,
                               const std::function<void()>& inChild,
                               const std::vector<unsigned>& only) const {
  const auto prepare = [&] {
    enter();
    if (inChild) inChild();
  };
  return hardening::run(command, prepare, onCall, only);
}

const std::vector<Form>& allForms() {
  static const std::vector<Form> forms = [] {
    const std::string tree = "/Users/alice/jobs/tree";
    const std::string disk = "/Users/alice/disk";
    const std::string media = "/Users/alice/media/tree";
    return std::vector<Form>{
        {"ChownTree", {"/helpers/chowntool", "-R", "4300:4300", tree}, tree},
        {"ChmodTree", {"/helpers/chmodtool", "-R", "a+rwx", tree}, tree},
        {"ChmodOne", {"/helpers/chmodtool", "0777", tree + "/file"}, tree},
        {"TrashItem", {"/helpers/trashtool", tree}, tree},
        {"TrashItemByCopy", {"/helpers/trashtool", media}, media},
        {"TrashContents", {"/helpers/trashtool", "-dircontents", tree}, tree},
        {"TrashContentsByCopy", {"/helpers/trashtool", "-dircontents", media}, media},
        {"TrashSpool", {"/helpers/trashtool", "-spooldir", tree}, tree},
        {"TrashSpoolByCopy", {"/helpers/trashtool", "-spooldir", media}, media},
        {"TrashSpoolOfVolume", {"/helpers/trashtool", "-spooldir", disk}, disk},
    };
  }();
  return forms;
}

const std::vector<Form>& verbForms() {
  static const std::vector<Form> forms = [] {
    const std::string jobs = "/Users/alice/jobs";
    const std::string tree = jobs + "/tree";
    const std::string media = "/Users/alice/media/tree";
    const std::string trash = "/Users/alice/.Trash";
    return std::vector<Form>{
        {"Remove", {"/verbs/rm", "-Rdf", tree}, tree},
        {"RemoveFolder", {"/verbs/rm", "-R", "-f", tree + "/sub"}, tree},
        {"MakeFolders", {"/verbs/mkdir", "-p", tree + "/sub/new/newer"}, tree},
        {"Move", {"/verbs/mv", "-f", tree, trash + "/tree"}, tree},
        {"MoveInto", {"/verbs/mv", "-f", tree, trash}, tree},
        {"MoveOntoAFile", {"/verbs/mv", "-f", tree + "/file", tree + "/sub/second"}, tree},
        {"MoveByCopy", {"/verbs/mv", "-f", media, trash + "/tree"}, media},
        {"Copy", {"/verbs/cp", "-f", "-p", "-R", tree, trash + "/tree"}, tree},
        {"CopyInto", {"/verbs/cp", "-f", "-p", "-R", tree, trash}, tree},
        {"CopyOnto", {"/verbs/cp", "-f", "-p", "-R", media, jobs}, tree},
        {"CopyFromOnto", {"/verbs/cp", "-f", "-p", "-R", media, jobs}, media},
        {"ChangeOwner", {"/verbs/chown", "-R", "bob", tree}, tree},
    };
  }();
  return forms;
}

Form formThatRecords() {
  for (const Form& form : verbForms()) {
    if (form.name != "MoveByCopy") continue;
    Form recording = form;
    recording.name = "MoveByCopyWithARecordInAFile";
    recording.command.front() = "/recording/mv";
    return recording;
  }
  throw std::logic_error("no such form");
}

std::vector<Form> formsOfAll() {
  std::vector<Form> forms = allForms();
  forms.insert(forms.end(), verbForms().begin(), verbForms().end());
  return forms;
}

bool Form::usesTrash() const {
  return name.starts_with("Trash") || command.back().starts_with("/Users/alice/.Trash");
}

std::vector<Form> trashForms() {
  std::vector<Form> forms;
  for (const Form& form : allForms()) {
    if (form.name.starts_with("Trash")) forms.push_back(form);
  }
  return forms;
}

}  // namespace hardening

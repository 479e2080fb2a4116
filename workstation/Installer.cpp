#include "workstation/Installer.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <system_error>

namespace workstation {
namespace {

namespace fs = std::filesystem;
using foundation::PropertyList;

[[noreturn]] void fail(const std::string& path) {
  throw std::system_error(errno, std::generic_category(), path);
}

std::string fourCharacterCode(const std::string& type) {
  return type + "????";
}

}  // namespace

void Installer::own(const std::string& path, Ownership ownership) const {
  const auto place = volume_.host(path);
  if (::lchown(place.c_str(), ownership.user, ownership.group) != 0) fail(place);
  if (::chmod(place.c_str(), ownership.mode) != 0) fail(place);
}

void Installer::folder(const std::string& path, Ownership ownership) const {
  const auto place = volume_.host(path);
  if (path != "/" && !fs::exists(place.parent_path())) folder(fs::path(path).parent_path().string());
  if (::mkdir(place.c_str(), 0755) != 0 && errno != EEXIST) fail(place);
  own(path, ownership);
}

void Installer::file(const std::string& path, std::string_view bytes, Ownership ownership) const {
  const auto parent = fs::path(path).parent_path().string();
  if (!fs::exists(volume_.host(parent))) folder(parent);
  writeFile(volume_.host(path), bytes);
  own(path, ownership);
}

void Installer::propertyList(const std::string& path, const PropertyList& value, Encoding encoding,
                             Ownership ownership) const {
  file(path, encodedPropertyList(value, encoding), ownership);
}

void Installer::link(const std::string& path, const std::string& target) const {
  fs::create_symlink(target, volume_.folder() / path.substr(1));  // /etc itself, not where it leads
}

void Installer::standIn(const std::string& path, Ownership ownership) const {
  const auto parent = fs::path(path).parent_path().string();
  if (!fs::exists(volume_.host(parent))) folder(parent);
  fs::copy_file(programsFolder() / "stand-in", volume_.host(path), fs::copy_options::overwrite_existing);
  own(path, ownership);
}

void Installer::manyFiles(const std::string& path, std::string_view prefix, std::size_t count,
                          Ownership ownership) const {
  const auto place = volume_.host(path);
  const int folder = ::open(place.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) fail(place);
  constexpr std::string_view content = "segment\n";
  for (std::size_t i = 0; i < count; ++i) {
<<<<<<< HEAD
    std::array<char, 24> number{};
=======
    std::array<char, 32> number{};
>>>>>>> wip-workstation
    std::snprintf(number.data(), number.size(), "%06zu", i);
    const auto name = std::string(prefix) + number.data() + ".segment";
    const int file = ::openat(folder, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, ownership.mode);
    const bool written = file >= 0 && ::write(file, content.data(), content.size()) > 0 &&
                         (ownership.user == 0 || ::fchown(file, ownership.user, ownership.group) == 0);
    if (!written) fail(name);
    ::close(file);
  }
  ::close(folder);
}

void Installer::bundle(const Bundle& bundle) const {
  const auto contents = bundle.path + "/Contents";
  const Ownership data{bundle.ownership.user, bundle.ownership.group, bundle.ownership.mode & 0666U};
  folder(bundle.path, bundle.ownership);
  folder(contents, bundle.ownership);
  folder(contents + "/Resources", bundle.ownership);
  PropertyList info(PropertyList::Dictionary{{"CFBundleIdentifier", bundle.identifier},
                                             {"CFBundlePackageType", bundle.type},
                                             {"CFBundleShortVersionString", bundle.version},
                                             {"CFBundleVersion", bundle.version + ".1"}});
  if (!bundle.executable.empty()) {
    info.set("CFBundleExecutable", bundle.executable);
    info.set("CFBundleName", bundle.executable);
    folder(contents + "/MacOS", bundle.ownership);
    standIn(contents + "/MacOS/" + bundle.executable, bundle.ownership);
  }
  propertyList(contents + "/Info.plist", info, bundle.infoEncoding, data);
  const PropertyList::Dictionary version{{"BuildVersion", "1"},
                                         {"CFBundleShortVersionString", bundle.version},
                                         {"CFBundleVersion", bundle.version + ".1"},
                                         {"ProjectName", "Compressor"}};
  propertyList(contents + "/version.plist", version, bundle.versionEncoding, data);
  file(contents + "/PkgInfo", fourCharacterCode(bundle.type), data);
}

void Installer::framework(const std::string& path) const {
  const auto name = fs::path(path).stem().string();
  folder(path + "/Versions/A/Resources");
  folder(path);
  const PropertyList::Dictionary info{{"CFBundleIdentifier", "com.apple." + name},
                                      {"CFBundlePackageType", "FMWK"},
                                      {"CFBundleExecutable", name}};
  propertyList(path + "/Versions/A/Resources/Info.plist", info, Encoding::xml);
  file(path + "/Versions/A/" + name, "a library of " + name + "\n", {0, 0, 0755});
  link(path + "/Versions/Current", "A");
  link(path + "/Resources", "Versions/Current/Resources");
  link(path + '/' + name, "Versions/Current/" + name);
}

}  // namespace workstation

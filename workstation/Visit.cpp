#include "workstation/Visit.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utmp.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "workstation/Accounts.h"
#include "workstation/ArgumentVector.h"
#include "workstation/Components.h"
#include "workstation/Layout.h"
#include "workstation/MountPoints.h"
#include "workstation/RecordLine.h"

namespace workstation {
namespace {

namespace fs = std::filesystem;
using std::chrono::duration_cast;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr int failedStatus = 125;

/// In the kernel's numbering (capabilities(7)).
constexpr std::array<std::string_view, 13> capabilities{
    "chown",  "dac_override", "dac_read_search", "fowner",           "fsetid",        "kill",     "setgid",
    "setuid", "setpcap",      "linux_immutable", "net_bind_service", "net_broadcast", "net_admin"};

int capabilityNumber(const std::string& name) {
  for (std::size_t i = 0; i < capabilities.size(); ++i) {
    if (capabilities[i] == name) return static_cast<int>(i);
  }
  throw std::invalid_argument("unknown capability: " + name);
}

std::string located(const std::string& program) {
  for (const char* folder : {"/usr/bin/", "/bin/", "/usr/local/bin/"}) {
    if (::access((folder + program).c_str(), X_OK) == 0) return folder + program;
  }
  throw std::runtime_error(program + " is not installed (Debian package bubblewrap)");
}

/// The user of the last session in the volume's utmp file, a greeter's not counted.
std::string consoleUserOf(const Volume& volume) {
  const auto bytes = contentsOf(volume.host("/var/run/utmp")).value_or("");
  std::string user;
  for (std::size_t at = 0; at + sizeof(utmp) <= bytes.size(); at += sizeof(utmp)) {
    utmp record{};
    std::memcpy(&record, bytes.data() + at, sizeof record);
    if (record.ut_type != USER_PROCESS) continue;
    user.assign(static_cast<const char*>(record.ut_user),
                ::strnlen(static_cast<const char*>(record.ut_user), UT_NAMESIZE));
  }
  return user == greeterAccount ? std::string() : user;
}

std::string hostNameOf(const Volume& volume) {
  auto name = contentsOf(volume.host(std::string(valuesFolder) + "/LocalHostName")).value_or("");
  while (name.ends_with('\n')) name.pop_back();
  return name.empty() ? "localhost" : name;
}

/// A program in the Mac's own format, of one or of several processors.
bool isMacProgram(const fs::path& program) {
  constexpr std::array<std::string_view, 3> formats{"\xce\xfa\xed\xfe", "\xcf\xfa\xed\xfe",
                                                    "\xca\xfe\xba\xbe"};
  std::error_code unreachable;
  if (!fs::is_regular_file(program, unreachable)) return false;
  const int file = ::open(program.c_str(), O_RDONLY | O_CLOEXEC);
  std::array<char, 4> magic{};
  const bool read = file >= 0 && ::read(file, magic.data(), magic.size()) == 4;
  if (file >= 0) ::close(file);
  return read && std::find(formats.begin(), formats.end(), std::string_view(magic.data(), magic.size())) !=
                     formats.end();
}

/// A file that exists in memory only.
int memoryFile(const std::string& bytes) {
  const int file = ::memfd_create("workstation", MFD_CLOEXEC);
  const bool written = file >= 0 &&
                       ::write(file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()) &&
                       ::lseek(file, 0, SEEK_SET) == 0;
  if (!written) throw std::system_error(errno, std::generic_category(), "memfd_create");
  return file;
}

/// The volume's passwd file with those added who have a home in Users and are not in it: a Mac keeps its
/// people in a directory service of its own.
std::string completedPasswd(const Volume& volume) {
  auto text = contentsOf(volume.host("/etc/passwd")).value_or("");
  const auto known = parseAccounts(text);
  if (!fs::is_directory(volume.host("/Users"))) return text;
  for (const auto& home : fs::directory_iterator(volume.host("/Users"))) {
    const auto name = home.path().filename().string();
    struct stat status {};
    const bool isPerson = name != "Shared" && !name.starts_with('.') &&
                          ::lstat(home.path().c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
                          status.st_uid != 0;
    if (!isPerson || findAccount(known, name)) continue;
    text += passwdLine({name, status.st_uid, status.st_gid, name, "/Users/" + name, "/bin/sh"});
  }
  return text;
}

const char* wordFor(NotificationAnswer answer) {
  switch (answer) {
    case NotificationAnswer::click:
      return "click";
    case NotificationAnswer::expire:
      return "expire";
    case NotificationAnswer::keep:
      break;
  }
  return "keep";
}

/// The arguments of bwrap(1), and the mount points that they need.
class Enclosure {
 public:
  Enclosure(const Volume& volume, MountPoints& mountPoints, std::vector<int>& handedOn)
      : volume_(volume), mountPoints_(mountPoints), handedOn_(handedOn) {}

  std::vector<std::string> arguments(const std::vector<std::string>& command, const VisitOptions& options,
                                     int control);

 private:
  void add(std::initializer_list<std::string> words) { words_.insert(words_.end(), words); }
  void mountFolder(const char* how, const fs::path& place, const std::string& inside);
  void mountFile(const fs::path& place, const std::string& inside);
  void mountHost();
  void mountBytes(const std::string& bytes, const std::string& inside);
  void mountTools();
  void mountPeople(const VisitOptions& options);
  void mountCallers(const VisitOptions& options);
  void addSession(const VisitOptions& options, int control);

  const Volume& volume_;
  MountPoints& mountPoints_;
  std::vector<std::string> words_;
  std::vector<int>& handedOn_;
};

void Enclosure::mountFolder(const char* how, const fs::path& place, const std::string& inside) {
  mountPoints_.needFolder(inside);
  add({how, place.string(), inside});
}

void Enclosure::mountFile(const fs::path& place, const std::string& inside) {
  mountPoints_.needFile(inside);
  add({"--ro-bind", place.string(), inside});
}

void Enclosure::mountHost() {
  for (const char* folder : {"/usr/lib", "/usr/lib64", "/lib", "/lib64"}) {
    if (fs::is_directory(folder)) mountFolder("--ro-bind", folder, folder);
  }
  for (const auto& [how, folder] : {std::pair("--proc", "/proc"), {"--dev", "/dev"}, {"--tmpfs", "/run"}}) {
    mountPoints_.needFolder(folder);
    add({how, folder});
  }
  // Folders that bwrap makes on its own are for root alone.
  for (const char* folder : {"/run/host", "/run/host/usr", "/run/workstation"}) {
    add({"--perms", "0755", "--dir", folder});
  }
  add({"--ro-bind", "/usr/bin", std::string(hostToolsFolder)});
  add({"--ro-bind", programsFolder().string(), std::string(programsMount)});
}

void Enclosure::mountBytes(const std::string& bytes, const std::string& inside) {
  mountPoints_.needFile(inside);
  handedOn_.push_back(memoryFile(bytes));
  add({"--perms", "0644", "--ro-bind-data", std::to_string(handedOn_.back()), inside});
}

void Enclosure::mountTools() {
  for (const auto& [name, place] : hostTools()) {
    const auto tool = fs::path("/usr/bin") / name;
    const auto there = volume_.host(place);
    const bool wanted = !fs::exists(fs::symlink_status(there)) || isMacProgram(there);
    if (fs::exists(tool) && wanted) mountFile(tool, std::string(place));
  }
  for (const auto& place : standInPlaces(volume_)) {
    if (isMacProgram(volume_.host(place))) mountFile(programsFolder() / "stand-in", place);
  }
}

/// Done last: until then the volume's own files are looked at.
void Enclosure::mountPeople(const VisitOptions& options) {
  const auto passwd = completedPasswd(volume_);
  if (passwd != contentsOf(volume_.host("/etc/passwd"))) mountBytes(passwd, "/private/etc/passwd");
  if (options.consoleUser) mountBytes(utmpFor(*options.consoleUser), "/private/var/run/utmp");
}

void Enclosure::mountCallers(const VisitOptions& options) {
  if (!options.bundle.empty()) {
    if (!fs::is_directory(options.bundle))
      throw std::runtime_error("no bundle at " + options.bundle.string());
    mountFolder("--ro-bind", fs::absolute(options.bundle), std::string(bundleMount));
  }
  const auto mount = [&](const char* how, const fs::path& place, const std::string& inside) {
    fs::is_directory(place) ? mountPoints_.needFolder(inside) : mountPoints_.needFile(inside);
    add({how, fs::absolute(place).string(), inside});
  };
  for (const auto& [place, inside] : options.readOnly) mount("--ro-bind", place, inside);
  for (const auto& [place, inside] : options.readWrite) mount("--bind", place, inside);
}

void Enclosure::addSession(const VisitOptions& options, int control) {
  add({"--", std::string(programsMount) + "/session", "--user", options.user, "--console",
       options.consoleUser.value_or(consoleUserOf(volume_))});
  add({"--session-bus", options.sessionBus ? "yes" : "no", "--system-bus", options.systemBus ? "yes" : "no"});
  add({"--notifications", wordFor(options.notifications)});
  add({"--patience", std::to_string(options.patience.count()), "--control", std::to_string(control)});
  for (const auto& name : options.withoutCapabilities)
    add({"--drop", std::to_string(capabilityNumber(name))});
  for (const auto& [name, text] : options.environment)
    add({"--setenv", std::string(name).append("=").append(text)});
}

std::vector<std::string> Enclosure::arguments(const std::vector<std::string>& command,
                                              const VisitOptions& options, int control) {
  add({located("bwrap"), "--as-pid-1", "--die-with-parent", "--unshare-pid", "--unshare-ipc", "--unshare-uts",
       "--unshare-net", "--new-session", "--hostname", hostNameOf(volume_), "--clearenv"});
  add({"--bind", fs::absolute(volume_.folder()).string(), "/"});
  mountHost();
  mountTools();
  mountCallers(options);
  mountPeople(options);
  addSession(options, control);
  add({"--"});
  words_.insert(words_.end(), command.begin(), command.end());
  return words_;
}

struct Pipe {
  int read = -1;
  int write = -1;
  Pipe() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
    read = ends[0];
    write = ends[1];
  }
  ~Pipe() {
    closeRead();
    closeWrite();
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  void closeRead() { closeOne(read); }
  void closeWrite() { closeOne(write); }

 private:
  static void closeOne(int& end) {
    if (end >= 0) ::close(end);
    end = -1;
  }
};

}  // namespace

struct Visit::State {
  State(const Volume& visited, const std::vector<std::string>& command, const VisitOptions& options);
  ~State();
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  void begin(const std::vector<std::string>& command, const VisitOptions& options);
  void lockVolume();
  void startEnclosure(const std::vector<std::string>& arguments, Output kind);
  [[noreturn]] void becomeEnclosure(char* const* arguments, Output kind) const;
  bool pump(milliseconds limit);
  void take(int& descriptor, std::string& text);
  void finish();

  Volume volume;
  std::optional<MountPoints> mountPoints;
  Pipe control;
  Pipe output;
  Pipe error;
  std::vector<int> handedOn;  ///< files in memory, for the enclosure alone
  int lock = -1;
  pid_t enclosure = -1;
  steady_clock::time_point start = steady_clock::now();
  VisitResult result;
};

Visit::State::State(const Volume& visited, const std::vector<std::string>& command,
                    const VisitOptions& options)
    : volume(visited) {
  try {
    begin(command, options);
  } catch (const std::exception& failure) {
    output.closeWrite();  // nobody will write: reading them ends at once
    error.closeWrite();
    result.status = failedStatus;
    result.error = std::string("enter-workstation: ") + failure.what() + '\n';
  }
}

void Visit::State::begin(const std::vector<std::string>& command, const VisitOptions& options) {
  if (command.empty()) throw std::invalid_argument("no command is given");
  if (::geteuid() != 0) throw std::runtime_error("needs root: the users inside are real ones (try sudo)");
  if (!volume.looksLikeMac()) {
    throw std::runtime_error(volume.folder().string() +
                             " holds no Mac volume (no Library, System or Users folder)");
  }
  if (!fs::exists(programsFolder() / "session")) {
    throw std::runtime_error("no programs in " + programsFolder().string() + " (set WORKSTATION_PROGRAMS)");
  }
  lockVolume();
  mountPoints.emplace(volume);
  Enclosure plan(volume, *mountPoints, handedOn);
  startEnclosure(plan.arguments(command, options, control.read), options.output);
}

void Visit::State::lockVolume() {
  lock = ::open(volume.folder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (lock < 0) throw std::system_error(errno, std::generic_category(), volume.folder().string());
  if (::flock(lock, LOCK_EX | LOCK_NB) != 0) throw std::runtime_error("another visit to this volume goes on");
}

/// Runs in the child, between fork and exec.
void Visit::State::becomeEnclosure(char* const* arguments, Output kind) const {
  if (kind == Output::capture) {
    const int null = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    ::dup2(null, STDIN_FILENO);
    ::dup2(output.write, STDOUT_FILENO);
    ::dup2(error.write, STDERR_FILENO);
  }
  // A terminal's or a caller's signal is for the command, which gets it from process 1; it must not end the
  // enclosure around it.
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) ::signal(number, SIG_IGN);
  for (const int file : handedOn) ::fcntl(file, F_SETFD, 0);
  ::fcntl(control.read, F_SETFD, 0);
  ::execv(arguments[0], arguments);
  ::_exit(failedStatus);
}

void Visit::State::startEnclosure(const std::vector<std::string>& arguments, Output kind) {
  auto words = arguments;
  const auto pointers = argumentVector(words);
  enclosure = ::fork();
  if (enclosure == 0) becomeEnclosure(pointers.data(), kind);
  output.closeWrite();
  error.closeWrite();
  control.closeRead();
  if (enclosure < 0) throw std::system_error(errno, std::generic_category(), "fork");
}

void Visit::State::take(int& descriptor, std::string& text) {
  std::array<char, 65536> buffer{};
  const auto count = ::read(descriptor, buffer.data(), buffer.size());
  if (count > 0) {
    text.append(buffer.data(), static_cast<std::size_t>(count));
  } else if (count == 0 || errno != EINTR) {
    ::close(descriptor);
    descriptor = -1;
  }
}

/// Reads what there is, at most waiting that long for something. Answers whether more can come.
bool Visit::State::pump(milliseconds limit) {
  std::array<pollfd, 2> waited{{{output.read, POLLIN, 0}, {error.read, POLLIN, 0}}};
  if (output.read < 0 && error.read < 0) return false;
  if (::poll(waited.data(), waited.size(), static_cast<int>(limit.count())) <= 0) return true;
  if (waited[0].revents != 0) take(output.read, result.output);
  if (waited[1].revents != 0) take(error.read, result.error);
  return true;
}

void Visit::State::finish() {
  while (pump(milliseconds(1000))) {
  }
  if (enclosure <= 0) return;
  int status = 0;
  while (::waitpid(enclosure, &status, 0) < 0 && errno == EINTR) {
  }
  enclosure = -1;
  result.status = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
  result.duration = duration_cast<milliseconds>(steady_clock::now() - start);
}

Visit::State::~State() {
  if (enclosure > 0) {
    ::kill(enclosure, SIGKILL);
    ::waitpid(enclosure, nullptr, 0);
  }
  for (const int file : handedOn) ::close(file);
  mountPoints.reset();
  if (lock >= 0) ::close(lock);
}

Visit::Visit(const Volume& volume, const std::vector<std::string>& command, const VisitOptions& options)
    : state_(std::make_unique<State>(volume, command, options)) {}

Visit::Visit(Visit&&) noexcept = default;
Visit::~Visit() = default;

void Visit::signal(int number) {
  const auto byte = static_cast<unsigned char>(number);
  if (state_->control.write >= 0 && ::write(state_->control.write, &byte, 1) != 1)
    state_->control.closeWrite();
}

bool Visit::waitForOutput(std::string_view text, milliseconds limit) {
  const auto end = steady_clock::now() + limit;
  const auto seen = [&] {
    return state_->result.output.find(text) != std::string::npos ||
           state_->result.error.find(text) != std::string::npos;
  };
  while (!seen()) {
    const auto left = duration_cast<milliseconds>(end - steady_clock::now());
    if (left.count() <= 0 || !state_->pump(left)) return seen();
  }
  return true;
}

VisitResult Visit::wait() {
  state_->finish();
  state_->mountPoints.reset();
  return state_->result;
}

VisitResult visit(const Volume& volume, const std::vector<std::string>& command,
                  const VisitOptions& options) {
  return Visit(volume, command, options).wait();
}

const std::vector<HostTool>& hostTools() {
  static const std::vector<HostTool> tools{{"bash", "/bin/bash"},
                                           {"cat", "/bin/cat"},
                                           {"chmod", "/bin/chmod"},
                                           {"cp", "/bin/cp"},
                                           {"date", "/bin/date"},
                                           {"dd", "/bin/dd"},
                                           {"df", "/bin/df"},
                                           {"echo", "/bin/echo"},
                                           {"ln", "/bin/ln"},
                                           {"ls", "/bin/ls"},
                                           {"mkdir", "/bin/mkdir"},
                                           {"mv", "/bin/mv"},
                                           {"pwd", "/bin/pwd"},
                                           {"rm", "/bin/rm"},
                                           {"rmdir", "/bin/rmdir"},
                                           {"sh", "/bin/sh"},
                                           {"sleep", "/bin/sleep"},
                                           {"sync", "/bin/sync"},
                                           {"basename", "/usr/bin/basename"},
                                           {"cut", "/usr/bin/cut"},
                                           {"dirname", "/usr/bin/dirname"},
                                           {"env", "/usr/bin/env"},
                                           {"false", "/usr/bin/false"},
                                           {"find", "/usr/bin/find"},
                                           {"grep", "/usr/bin/grep"},
                                           {"head", "/usr/bin/head"},
                                           {"id", "/usr/bin/id"},
                                           {"mkfifo", "/usr/bin/mkfifo"},
                                           {"printf", "/usr/bin/printf"},
                                           {"readlink", "/usr/bin/readlink"},
                                           {"sed", "/usr/bin/sed"},
                                           {"sort", "/usr/bin/sort"},
                                           {"stat", "/usr/bin/stat"},
                                           {"sudo", "/usr/bin/sudo"},
                                           {"tail", "/usr/bin/tail"},
                                           {"tee", "/usr/bin/tee"},
                                           {"touch", "/usr/bin/touch"},
                                           {"tr", "/usr/bin/tr"},
                                           {"true", "/usr/bin/true"},
                                           {"uname", "/usr/bin/uname"},
                                           {"wc", "/usr/bin/wc"},
                                           {"whoami", "/usr/bin/whoami"},
                                           {"xargs", "/usr/bin/xargs"}};
  return tools;
}

}  // namespace workstation

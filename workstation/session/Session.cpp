/// Process 1 of a visit: starts the buses, their listener and what runs on the workstation, then the
/// visitor's command as its user, and takes in every process that loses its parent. When the command has
/// ended it waits for tools that outlive it, writes down what still runs, and ends the rest.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "workstation/Accounts.h"
#include "workstation/Layout.h"
#include "workstation/RecordLine.h"
#include "workstation/session/Launch.h"
#include "workstation/session/Processes.h"

namespace workstation::session {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// No tool has to run for so long before all is taken to have ended: who was asked to quit is still writing
/// that down, and signals are still on their way through the bus.
constexpr milliseconds quietTime{100};

/// Set by the way in, which is the only caller.
struct Options {
  std::string user = "root";
  std::string console;
  bool sessionBus = false;
  bool systemBus = false;
  std::string notifications = "keep";
  milliseconds patience{30000};
  int control = -1;
  std::vector<int> droppedCapabilities;
  std::vector<std::pair<std::string, std::string>> environment;
  std::vector<std::string> command;
};

Options parse(int argc, char** argv) {
  Options options;
  int next = 1;
  for (; next + 1 < argc && std::string_view(argv[next]) != "--"; next += 2) {
    const std::string name = argv[next];
    const std::string text = argv[next + 1];
    if (name == "--user") options.user = text;
    if (name == "--console") options.console = text;
    if (name == "--session-bus") options.sessionBus = text == "yes";
    if (name == "--system-bus") options.systemBus = text == "yes";
    if (name == "--notifications") options.notifications = text;
    if (name == "--patience") options.patience = milliseconds(std::strtol(text.c_str(), nullptr, 10));
    if (name == "--control") options.control = static_cast<int>(std::strtol(text.c_str(), nullptr, 10));
    if (name == "--drop") {
      options.droppedCapabilities.push_back(static_cast<int>(std::strtol(text.c_str(), nullptr, 10)));
    }
    if (name == "--setenv") {
      const auto equals = text.find('=');
      options.environment.emplace_back(text.substr(0, equals), text.substr(equals + 1));
    }
  }
  for (++next; next < argc; ++next) options.command.emplace_back(argv[next]);
  return options;
}

/// What a desktop gives its session bus: everything is allowed to the user, nothing to others, root among
/// them. Nothing is started on demand.
constexpr std::string_view sessionBusConfiguration = R"(<!DOCTYPE busconfig PUBLIC
 "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <keep_umask/>
  <listen>unix:path=@PATH@</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
)";

/// What a system bus allows: signals from everybody to everybody, names and calls to services that say so.
constexpr std::string_view systemBusConfiguration = R"(<!DOCTYPE busconfig PUBLIC
 "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path=@PATH@</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <deny own="*"/>
    <deny send_type="method_call"/>
    <allow send_type="signal"/>
    <allow send_requested_reply="true" send_type="method_return"/>
    <allow send_requested_reply="true" send_type="error"/>
    <allow receive_type="method_call"/>
    <allow receive_type="method_return"/>
    <allow receive_type="error"/>
    <allow receive_type="signal"/>
    <allow send_destination="org.freedesktop.DBus"/>
  </policy>
</busconfig>
)";

constexpr std::string_view busTools = "/run/workstation";
constexpr const char* systemBusPath = "/run/dbus/system_bus_socket";

bool writeFile(const std::string& path, std::string_view text) {
  const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (file < 0) return false;
  const auto written = ::write(file, text.data(), text.size());
  ::close(file);
  return written == static_cast<ssize_t>(text.size());
}

std::string configured(std::string_view configuration, const std::string& socket) {
  std::string text(configuration);
  constexpr std::string_view mark = "@PATH@";
  return text.replace(text.find(mark), mark.size(), socket);
}

class Session {
 public:
  explicit Session(Options options)
      : options_(std::move(options)),
        accounts_(parseAccounts(contentsOf("/etc/passwd").value_or(""))),
        groups_(contentsOf("/etc/group").value_or("")) {}

  int run();

 private:
  [[nodiscard]] Account account(const std::string& name) const;
  [[nodiscard]] Program program(const std::string& user, std::vector<std::string> command) const;
  [[nodiscard]] std::string runtimeFolder() const;
  void prepareFolders() const;
  void blockSignals();
  void startBus(const std::string& name, const std::string& socket, std::string_view configuration,
                const std::string& busUser);
  void startListener(const std::string& name, const std::string& socket);
  void startBuses();
  void startProcesses();
  void startCommand();
  void reap();
  void passOnSignal();
  void waitForCommand();
  void waitForTools();
  void writeRemaining();
  [[nodiscard]] bool runsAlready(const std::string& executable) const;
  void saveResidents() const;
  void endListeners();
  void note(std::string kind, std::string path, std::vector<std::string> words) const;

  Options options_;
  std::vector<Account> accounts_;
  std::string groups_;
  std::vector<pid_t> infrastructure_;
  std::vector<pid_t> listeners_;
  std::vector<pid_t> reaped_;
  pid_t command_ = -1;
  int commandStatus_ = 0;
  int signals_ = -1;
};

Account Session::account(const std::string& name) const {
  if (auto found = findAccount(accounts_, name)) return *found;
  if (name == "root") return {"root", 0, 0, "System Administrator", "/var/root", "/bin/sh"};
  std::fprintf(stderr, "enter-workstation: the volume has no user \"%s\"\n", name.c_str());
  std::exit(125);
}

Program Session::program(const std::string& user, std::vector<std::string> command) const {
  Program program;
  program.command = std::move(command);
  program.account = account(user);
  program.groups = groupsOf(program.account, groups_);
  const auto path = "/usr/bin:/bin:/usr/sbin:/sbin:" + std::string(hostToolsFolder);
  program.environment = {{"PATH", path},    {"HOME", program.account.home},   {"USER", user},
                         {"LOGNAME", user}, {"SHELL", program.account.shell}, {"LANG", "C.UTF-8"}};
  // A scheduler's root has no session: only the console user's programs are told of the session bus.
  if (options_.sessionBus && user == options_.console) {
    program.environment.emplace_back("XDG_RUNTIME_DIR", runtimeFolder());
    program.environment.emplace_back("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + runtimeFolder() + "/bus");
  }
  return program;
}

std::string Session::runtimeFolder() const {
  return "/run/user/" + std::to_string(account(options_.console).user);
}

void Session::prepareFolders() const {
  ::umask(022);
  for (const char* folder : {"/run/user", "/run/dbus"}) ::mkdir(folder, 0755);
  const std::string residents(residentsFolder);
  ::mkdir(residents.c_str(), 0777);
  ::chmod(residents.c_str(), 01777);
  const std::string state(stateFolder);
  ::mkdir("/private/var/db", 0755);
  ::mkdir(state.c_str(), 0777);
  ::chmod(state.c_str(), 0777);
  const std::string valuesPlace(valuesFolder);
  ::mkdir(valuesPlace.c_str(), 0777);
  ::chmod(valuesPlace.c_str(), 0777);
  if (options_.console.empty()) return;
  const auto user = account(options_.console);
  ::mkdir(runtimeFolder().c_str(), 0700);
  if (::chown(runtimeFolder().c_str(), user.user, user.group) != 0)
    std::perror("enter-workstation: /run/user");
}

void Session::blockSignals() {
  sigset_t set;
  ::sigemptyset(&set);
  ::sigaddset(&set, SIGCHLD);
  ::sigprocmask(SIG_BLOCK, &set, nullptr);
  signals_ = ::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
}

void Session::startBus(const std::string& name, const std::string& socket, std::string_view configuration,
                       const std::string& busUser) {
  const auto file = std::string(busTools) + '/' + name + ".conf";
  writeFile(file, configured(configuration, socket));
  std::array<int, 2> ready{};
  if (::pipe2(ready.data(), O_CLOEXEC) != 0) return;
  auto bus = program(busUser, {std::string(hostToolsFolder) + "/dbus-daemon", "--config-file=" + file,
                               "--nofork", "--nopidfile", "--print-address=" + std::to_string(ready[1])});
  bus.background = true;
  bus.keptDescriptor = ready[1];
  infrastructure_.push_back(launch(bus));
  ::close(ready[1]);
  pollfd waited{ready[0], POLLIN, 0};
  ::poll(&waited, 1, 5000);
  ::close(ready[0]);
}

void Session::startListener(const std::string& name, const std::string& socket) {
  const auto user = options_.console.empty() ? std::string("root") : options_.console;
  auto listener = program(user, {std::string(programsMount) + "/record-bus", name, "unix:path=" + socket,
                                 std::string(busFile), options_.notifications});
  listener.background = true;
  const auto process = launchAndWaitUntilReady(listener);
  infrastructure_.push_back(process);
  listeners_.push_back(process);
}

void Session::startBuses() {
  if (options_.sessionBus && !options_.console.empty()) {
    const auto socket = runtimeFolder() + "/bus";
    startBus("session", socket, sessionBusConfiguration, options_.console);
    startListener("session", socket);
  }
  if (options_.systemBus) {
    startBus("system", systemBusPath, systemBusConfiguration, "root");
    startListener("system", systemBusPath);
  }
}

bool Session::runsAlready(const std::string& executable) const {
  const auto running = runningProcesses(infrastructure_);
  return std::any_of(running.begin(), running.end(),
                     [&](const RunningProcess& process) { return process.executable == executable; });
}

void Session::startProcesses() {
  for (const auto& line : split(contentsOf(std::string(processesFile)).value_or(""), '\n')) {
    auto words = split(line, '\t');
    if (words.size() < 2) continue;
    const auto user = words.front();
    words.erase(words.begin());
    if (runsAlready(words.front())) continue;  // another one brought it along
    auto resident = program(user, words);
    resident.background = true;
    if (launchAndWaitUntilReady(resident) < 0) std::perror("enter-workstation: cannot start a process");
  }
}

void Session::startCommand() {
  auto command = program(options_.user, options_.command);
  command.droppedCapabilities = options_.droppedCapabilities;
  for (const auto& setting : options_.environment) command.environment.push_back(setting);
  note("begin", options_.user, options_.command);
  command_ = launch(command);
  if (command_ < 0) std::exit(125);
}

void Session::reap() {
  signalfd_siginfo ignored{};
  while (::read(signals_, &ignored, sizeof ignored) > 0) {
  }
  int status = 0;
  pid_t process = 0;
  while ((process = ::waitpid(-1, &status, WNOHANG)) > 0) {
    reaped_.push_back(process);
    if (process != command_) continue;
    command_ = 0;
    commandStatus_ = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    note("exit", options_.command[0],
         {WIFSIGNALED(status) ? "signal" : "status",
          std::to_string(WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status))});
  }
}

/// The way in writes one byte, a signal's number, for each signal that is to reach the command.
void Session::passOnSignal() {
  unsigned char signal = 0;
  if (::read(options_.control, &signal, 1) == 1) {
    if (command_ > 0) ::kill(command_, signal);
    return;
  }
  options_.control = -1;
}

void Session::waitForCommand() {
  while (command_ > 0) {
    std::array<pollfd, 2> waited{{{signals_, POLLIN, 0}, {options_.control, POLLIN, 0}}};
    if (::poll(waited.data(), waited.size(), -1) < 0) continue;
    if ((waited[1].revents & (POLLIN | POLLHUP)) != 0) passOnSignal();
    reap();
  }
}

void Session::waitForTools() {
  const auto begin = steady_clock::now();
  auto lastBusy = begin;
  for (auto now = begin; now - begin < options_.patience && now - lastBusy < quietTime;
       now = steady_clock::now()) {
    pollfd waited{signals_, POLLIN, 0};
    ::poll(&waited, 1, 10);
    reap();
    const auto running = runningProcesses(infrastructure_);
    const bool busy = std::any_of(running.begin(), running.end(),
                                  [](const RunningProcess& process) { return !process.resident; });
    if (busy) lastBusy = steady_clock::now();
  }
  const auto time = std::chrono::duration_cast<milliseconds>(lastBusy - begin);
  note("waited", options_.command[0], {std::to_string(time.count())});
}

void Session::writeRemaining() {
  for (const auto& process : runningProcesses(infrastructure_)) {
    std::vector<std::string> words{std::to_string(process.process), std::to_string(process.user),
                                   process.resident ? "resident" : "tool"};
    words.insert(words.end(), process.arguments.begin(), process.arguments.end());
    note("remaining", process.executable, words);
  }
}

/// The next visit finds running what runs now.
void Session::saveResidents() const {
  std::string lines;
  for (const auto& process : runningProcesses(infrastructure_)) {
    const auto owner = std::find_if(accounts_.begin(), accounts_.end(),
                                    [&](const Account& account) { return account.user == process.user; });
    if (!process.resident || owner == accounts_.end()) continue;
    lines += owner->name + '\t' + process.executable;
    for (const auto& argument : process.arguments) lines += '\t' + argument;
    lines += '\n';
  }
  writeFile(std::string(processesFile), lines);
}

/// A listener hands in what the bus still holds for it before it goes.
void Session::endListeners() {
  for (const auto listener : listeners_) ::kill(listener, SIGTERM);
  const auto limit = steady_clock::now() + milliseconds(3000);
  const auto isGone = [&](pid_t process) {
    return std::find(reaped_.begin(), reaped_.end(), process) != reaped_.end();
  };
  while (!std::all_of(listeners_.begin(), listeners_.end(), isGone) && steady_clock::now() < limit) {
    pollfd waited{signals_, POLLIN, 0};
    ::poll(&waited, 1, 10);
    reap();
  }
}

void Session::note(std::string kind, std::string path, std::vector<std::string> words) const {
  appendRecord(std::string(visitsFile), recordNow(std::move(kind), std::move(path), std::move(words)));
}

int Session::run() {
  blockSignals();
  prepareFolders();
  startBuses();
  startProcesses();
  startCommand();
  waitForCommand();
  waitForTools();
  writeRemaining();
  saveResidents();
  endListeners();
  note("end", options_.command[0], {});
  return commandStatus_;
}

}  // namespace
}  // namespace workstation::session

int main(int argc, char** argv) {
  auto options = workstation::session::parse(argc, argv);
  if (options.command.empty()) return 125;
  return workstation::session::Session(std::move(options)).run();
}

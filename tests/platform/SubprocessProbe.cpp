// What a child sees and does, for the tests of subprocesses.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "platform/Platform.h"

extern char** environ;

namespace {

int printArguments(const std::vector<std::string>& arguments) {
  for (const std::string& argument : arguments) std::cout << argument.size() << ':' << argument << '\n';
  return 0;
}

int printDescriptors() {
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir("/proc/self/fd"), &::closedir);
  while (const dirent* const entry = ::readdir(folder.get())) {
    const std::string name = entry->d_name;
    if (name[0] != '.' && name != std::to_string(::dirfd(folder.get()))) std::cout << name << '\n';
  }
  return 0;
}

/// The lines of /proc/self/status that begin with one of the words.
int printStatus(const std::vector<std::string>& words) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    for (const std::string& word : words) {
      if (line.starts_with(word + ":")) std::cout << line << '\n';
    }
  }
  return 0;
}

int printEnvironment() {
  for (char** entry = environ; *entry != nullptr; ++entry) std::cout << *entry << '\n';
  return 0;
}

int printFill(std::size_t output, std::size_t error) {
  std::cerr << std::string(error, 'e');
  std::cout << std::string(output, 'o');
  return 0;
}

/// Ignores SIGTERM, says so, and stays until it is killed or its time is up.
int ignoreTermination(const std::string& seconds) {
  static_cast<void>(std::signal(SIGTERM, SIG_IGN));
  std::cout << "ready" << std::endl;
  ::sleep(static_cast<unsigned>(std::stoul(seconds)));
  return 7;
}

/// Launches a child through the real platform that writes a file once there is one beside it that is called
/// ".go" after it, and ends at once.
int leaveChildBehind(const std::string& file) {
  platform::SubprocessOptions options;
  options.launchPath = "/bin/sh";
  options.arguments = {"-c",
                       "for i in $(seq 1000); do test -e \"$0.go\" && break; sleep 0.01; done;"
                       " echo outlived > \"$0\"",
                       file};
  options.standardOutput = platform::Stream::nullDevice;
  options.standardError = platform::Stream::nullDevice;
  platform::native().subprocesses.create(options)->launch();
  return 0;
}

/// Captures a child's output with the standard streams closed that are named ("0", "012"), writes it to a
/// file.
int captureWithClosedStreams(const std::string& streams, const std::string& file) {
  for (const char stream : streams) ::close(stream - '0');
  platform::SubprocessOptions options;
  options.launchPath = "/bin/sh";
  options.arguments = {"-c", "echo output; echo error >&2; cat"};
  options.standardInput = platform::Stream::pipe;
  options.standardOutput = platform::Stream::pipe;
  options.standardError = platform::Stream::pipe;
  const auto child = platform::native().subprocesses.create(options);
  child->launch();
  std::string text = child->availableOutput() + child->availableOutput() + child->availableError();
  child->waitUntilExit();
  std::ofstream(file) << text << child->terminationStatus();
  return 0;
}

/// Writes messages to the system console, the last of them "end".
int writeToConsole(int count, std::size_t size) {
  for (int number = 0; number < count; ++number) {
    platform::native().systemConsole.write(std::string(size, 'x'));
  }
  platform::native().systemConsole.write("two\nlines");
  return 0;
}

int printProcessInformation() {
  auto& information = platform::native().processInformation;
  printArguments(information.arguments());
  std::cout << information.processName() << '\n' << platform::native().mainBundle.path() << '\n';
  return 0;
}

/// Defers interruption, says so and which process it is, waits for a signal (a minute at least, for a busy
/// machine), says its number, and lets it end the process.
int deferInterruption() {
  auto& interruption = platform::native().interruption;
  interruption.defer();
  std::cout << "deferred " << ::getpid() << std::endl;
  for (int turns = 0; turns < 60000 && !interruption.requested(); ++turns) ::usleep(1000);
  std::cout << interruption.requested().value_or(0) << std::endl;
  interruption.deliver();
  return 9;
}

/// What SIGCHLD does before the platform is made and after.
int printDispositions() {
  const auto print = [] {
    struct sigaction action {};
    ::sigaction(SIGCHLD, nullptr, &action);
    std::cout << "SIGCHLD " << (action.sa_handler == SIG_IGN ? "ignored" : "default") << "\n";
  };
  print();
  static_cast<void>(platform::native());
  print();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> all(argv + 1, argv + argc);
  const std::string mode = all.empty() ? "" : all[0];
  const std::vector<std::string> rest(all.begin() + (all.empty() ? 0 : 1), all.end());
  if (mode == "arguments") return printArguments(rest);
  if (mode == "descriptors") return printDescriptors();
  if (mode == "status") return printStatus(rest);
  if (mode == "environment") return printEnvironment();
  if (mode == "fill") return printFill(std::stoul(rest.at(0)), std::stoul(rest.at(1)));
  if (mode == "ignore-termination") return ignoreTermination(rest.at(0));
  if (mode == "leave-child") return leaveChildBehind(rest.at(0));
  if (mode == "capture-closed") return captureWithClosedStreams(rest.at(0), rest.at(1));
  if (mode == "console") return writeToConsole(std::stoi(rest.at(0)), std::stoul(rest.at(1)));
  if (mode == "information") return printProcessInformation();
  if (mode == "dispositions") return printDispositions();
  if (mode == "interruption") return deferInterruption();
  return 64;
}

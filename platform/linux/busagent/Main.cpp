#include <getopt.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <exception>
#include <iostream>
#include <optional>
#include <string>

#include "platform/linux/busagent/Account.h"
#include "platform/linux/busagent/Agent.h"
#include "platform/linux/busagent/Buses.h"

/// busagent [--account NAME] [--session-bus ADDRESS] [--runtime-folder FOLDER] [--search-processes]
///          [--system-bus ADDRESS]
///
/// The bus agent of Quillmend (platform/linux/BusAgent.h), its socket as standard input. With --account it
/// first becomes that account. Exit status 0 when its work is done, 1 when there is no bus or it went away, 2
/// for arguments it does not know.

namespace {

struct Arguments {
  std::optional<std::string> account = {};
  busagent::Buses buses = {};
};

std::optional<Arguments> parsed(int count, char** values) {
  static const option options[] = {
      {"account", required_argument, nullptr, 'a'},        {"session-bus", required_argument, nullptr, 's'},
      {"runtime-folder", required_argument, nullptr, 'r'}, {"search-processes", no_argument, nullptr, 'p'},
      {"system-bus", required_argument, nullptr, 'y'},     {nullptr, 0, nullptr, 0}};
  Arguments arguments;
  for (int letter = 0; (letter = ::getopt_long(count, values, "", options, nullptr)) != -1;) {
    switch (letter) {
      case 'a':
        arguments.account = optarg;
        break;
      case 's':
        arguments.buses.sessionBus = optarg;
        break;
      case 'r':
        arguments.buses.runtimeFolder = optarg;
        break;
      case 'p':
        arguments.buses.searchesProcesses = true;
        break;
      case 'y':
        arguments.buses.systemBus = optarg;
        break;
      default:
        return std::nullopt;
    }
  }
  if (optind != count) return std::nullopt;
  return arguments;
}

bool takeItsPlace(const std::optional<std::string>& account) {
  ::umask(077);
  if (::chdir("/") != 0) return false;
  if (account && !busagent::becomeAccount(*account)) return false;
  return busagent::renounceNewPrivileges();
}

int serve(const busagent::Buses& buses) {
  // A bus that never answers its greeting: whoever started this has long given up by then.
  constexpr unsigned int greetingSeconds = 5;
  ::alarm(greetingSeconds);
  auto connection = busagent::connectToFirst(buses);
  ::alarm(0);
  if (!connection) return 1;
  busagent::Agent(std::move(*connection), STDIN_FILENO).run();
  return 0;
}

}  // namespace

int main(int count, char** values) try {
  const auto arguments = parsed(count, values);
  if (!arguments) return 2;
  if (!takeItsPlace(arguments->account)) return 1;
  return serve(arguments->buses);
} catch (const std::exception& failure) {
  std::cerr << "busagent: " << failure.what() << '\n';
  return 1;
}

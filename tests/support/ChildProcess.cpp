#include "tests/support/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

namespace {

std::vector<std::string> asAccount(std::vector<std::string> command, uid_t account) {
  const std::string number = std::to_string(account);
  std::vector<std::string> whole = {"setpriv", "--reuid=" + number, "--regid=" + number, "--clear-groups",
                                    "--"};
  whole.insert(whole.end(), command.begin(), command.end());
  return whole;
}

}  // namespace

ChildProcess::ChildProcess(std::vector<std::string> command, std::optional<uid_t> account) {
  if (account) command = asAccount(std::move(command), *account);
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  output_.reset(ends[0]);
  const platform::UniqueDescriptor theirs(ends[1]);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, theirs.get(), STDOUT_FILENO);
  std::vector<char*> arguments;
  for (std::string& argument : command) arguments.push_back(argument.data());
  arguments.push_back(nullptr);
  const int error = posix_spawnp(&process_, arguments[0], &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) throw std::runtime_error("cannot start " + command.front());
}

ChildProcess::~ChildProcess() {
  kill();
}

std::string ChildProcess::line(std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (unread_.find('\n') == std::string::npos) {
    if (!readMore(deadline)) return "";
  }
  const auto end = unread_.find('\n');
  std::string line = unread_.substr(0, end);
  unread_.erase(0, end + 1);
  return line;
}

void ChildProcess::signal(int number) const {
  if (process_ > 0) ::kill(process_, number);
}

void ChildProcess::kill() {
  if (process_ <= 0) return;
  ::kill(process_, SIGKILL);
  ::waitpid(process_, nullptr, 0);
  process_ = -1;
}

bool ChildProcess::readMore(std::chrono::steady_clock::time_point deadline) {
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
  pollfd waited{output_.get(), POLLIN, 0};
  if (left <= 0 || ::poll(&waited, 1, static_cast<int>(left)) <= 0) return false;
  std::array<char, 65536> buffer{};
  const ssize_t count = ::read(output_.get(), buffer.data(), buffer.size());
  if (count <= 0) return false;
  unread_.append(buffer.data(), static_cast<std::size_t>(count));
  return true;
}

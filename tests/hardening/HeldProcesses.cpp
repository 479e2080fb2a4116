// Descriptors of processes for a program under valgrind, which knows of none (pidfd_open(2),
// pidfd_send_signal(2)): loaded before the C library, it lets a process's folder of /proc stand for it.
// Nobody but the test gives numbers of processes away meanwhile.
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <cstdarg>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

std::string folderOf(int descriptor) {
  return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor));
}

long openProcess(long process) {
  return ::open(("/proc/" + std::to_string(process)).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

long sendSignal(int descriptor, int signal) {
  return ::kill(std::stoi(std::filesystem::path(folderOf(descriptor)).filename()), signal);
}

/// Gone, or left for its parent to wait for.
bool hasEnded(int descriptor) {
  std::ifstream stat(folderOf(descriptor) + "/stat");
  std::string line;
  if (!std::getline(stat, line)) return true;
  return line.compare(line.rfind(')') + 2, 1, "Z") == 0;
}

/// The C library's.
template <typename Function>
Function own(const char* name) {
  return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" long syscall(long number, ...) noexcept {
  va_list values;
  va_start(values, number);
  const long first = va_arg(values, long);
  const long second = va_arg(values, long);
  const long third = va_arg(values, long);
  va_end(values);
  if (number == SYS_pidfd_open) return openProcess(static_cast<int>(first));
  if (number == SYS_pidfd_send_signal) return sendSignal(static_cast<int>(first), static_cast<int>(second));
  return own<decltype(&::syscall)>("syscall")(number, first, second, third);
}

/// A process is readable when it has ended, as the real ones are.
extern "C" int poll(pollfd* descriptors, unsigned long count, int milliseconds) {
  if (descriptors->events != POLLIN) return own<decltype(&poll)>("poll")(descriptors, count, milliseconds);
  constexpr int kStep = 10;
  for (int waited = 0; !hasEnded(descriptors->fd); waited += kStep) {
    if (waited >= milliseconds) return 0;
    ::usleep(kStep * 1000);
  }
  descriptors->revents = POLLIN;
  return 1;
}

#include "platform/linux/ConsoleUser.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/types.h>
#include <unistd.h>
#include <utmp.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>
#include <tuple>

#include "platform/posix/Accounts.h"
#include "platform/posix/UniqueDescriptor.h"

namespace platform {
namespace {

struct FreeText {
  void operator()(char* text) const { std::free(text); }  // NOLINT: what the library allocated by malloc
};
using OwnedText = std::unique_ptr<char, FreeText>;

/// libsystemd's functions, by their documented signatures. Not unloaded: it may have registered exit
/// handlers.
class SystemdLibrary {
 public:
  SystemdLibrary() : library_(dlopen("libsystemd.so.0", RTLD_LAZY | RTLD_LOCAL)) {}

  template <typename Function>
  [[nodiscard]] Function* function(const char* name) const {
    if (library_ == nullptr) return nullptr;
    return reinterpret_cast<Function*>(dlsym(library_, name));
  }

 private:
  void* library_;
};

using SeatGetActive = int(const char* seat, char** session, uid_t* user);
using SessionGetText = int(const char* session, char** text);
using SessionGetUser = int(const char* session, uid_t* user);

std::string sessionText(const SystemdLibrary& library, const char* function, const char* session) {
  auto* ask = library.function<SessionGetText>(function);
  char* text = nullptr;
  if (ask == nullptr || ask(session, &text) < 0) return "";
  return OwnedText(text).get();
}

std::string sessionUserName(const SystemdLibrary& library, const char* session) {
  std::string name = sessionText(library, "sd_session_get_username", session);
  if (!name.empty()) return name;
  auto* ask = library.function<SessionGetUser>("sd_session_get_uid");
  uid_t user = 0;
  if (ask == nullptr || ask(session, &user) < 0) return "";
  const auto account = accountWithID(user);
  return account ? account->name : "";
}

bool isGreeterAccount(std::string_view name) {
  static constexpr std::array<std::string_view, 14> kGreeters = {
      "gdm",     "Debian-gdm", "gdm-greeter", "lightdm", "sddm", "lxdm", "kdm",
      "greeter", "_greeter",   "greetd",      "slim",    "xdm",  "ly",   "loginwindow"};
  return std::find(kGreeters.begin(), kGreeters.end(), name) != kGreeters.end();
}

std::optional<std::string> person(std::string name) {
  if (name.empty() || isGreeterAccount(name)) return std::nullopt;
  return name;
}

/// A field of a record: not terminated where it is full.
template <std::size_t N>
std::string field(const char (&text)[N]) {
  return {text, strnlen(text, N)};
}

bool isNumber(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

/// How much a line is the console: 3 "console", 2 a display, 1 a text terminal, 0 not at all.
int consoleRank(std::string_view line) {
  if (line == "console") return 3;
  if (line.starts_with(':')) return isNumber(line.substr(1, line.find('.') - 1)) ? 2 : 0;
  if (line.starts_with("tty")) return isNumber(line.substr(3)) ? 1 : 0;
  return 0;
}

bool isAlive(pid_t process) {
  return process <= 0 || kill(process, 0) == 0 || errno != ESRCH;
}

struct Login {
  int rank = 0;
  long when = 0;
  std::string name;
  [[nodiscard]] auto key() const { return std::tie(rank, when); }
};

Login loginOf(const utmp& record) {
  if (record.ut_type != USER_PROCESS || !isAlive(record.ut_pid)) return {};
  const std::optional<std::string> name = person(field(record.ut_user));
  if (!name) return {};
  return Login{consoleRank(field(record.ut_line)), record.ut_tv.tv_sec, *name};
}

bool readRecord(int file, utmp& record) {
  ssize_t count = -1;
  do {
    count = read(file, &record, sizeof record);
  } while (count < 0 && errno == EINTR);
  return count == static_cast<ssize_t>(sizeof record);
}

}  // namespace

SeatState LogindSeat::state() const {
  const SystemdLibrary library;
  auto* seatGetActive = library.function<SeatGetActive>("sd_seat_get_active");
  if (seatGetActive == nullptr) return {};
  char* session = nullptr;
  const int status = seatGetActive("seat0", &session, nullptr);
  const OwnedText owned(session);
  if (status == -ENODATA) return {SeatState::Answer::nobody, "", ""};
  if (status < 0 || session == nullptr) return {};
  return {SeatState::Answer::session, sessionText(library, "sd_session_get_class", session),
          sessionUserName(library, session)};
}

std::optional<std::string> consoleUserFromUtmp(const std::string& file) {
  const UniqueDescriptor records(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!records) return std::nullopt;
  Login best;
  utmp record{};
  while (readRecord(records.get(), record)) {
    Login login = loginOf(record);
    if (login.rank > 0 && login.key() >= best.key()) best = std::move(login);
  }
  return best.rank == 0 ? std::nullopt : std::optional(best.name);
}

std::optional<std::string> consoleUser(const LoginSeat& seat, const std::vector<std::string>& utmpFiles) {
  SeatState state = seat.state();
  if (state.answer == SeatState::Answer::session) {
    return state.sessionClass == "greeter" ? std::nullopt : person(std::move(state.userName));
  }
  if (state.answer == SeatState::Answer::nobody) return std::nullopt;
  for (const std::string& file : utmpFiles) {
    if (access(file.c_str(), R_OK) == 0) return consoleUserFromUtmp(file);
  }
  return std::nullopt;
}

std::optional<std::string> consoleUser() {
  return consoleUser(LogindSeat(), {"/run/utmp", "/var/run/utmp"});
}

}  // namespace platform

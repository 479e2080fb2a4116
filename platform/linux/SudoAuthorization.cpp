#include "platform/linux/SudoAuthorization.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string_view>

#include "platform/Platform.h"
#include "platform/foundation/Text.h"
#include "platform/linux/AskpassNotes.h"
#include "platform/linux/ChildReaper.h"
#include "platform/linux/ProcessDescriptor.h"
#include "platform/posix/Pipe.h"
#include "platform/posix/ReadableWait.h"
#include "platform/posix/Report.h"
#include "platform/posix/SpawnedProgram.h"

namespace platform {

namespace {

using Arguments = std::vector<std::string>;
using std::chrono::milliseconds;

/// A line of input that sudo would cut is refused instead; it also fits into a pipe before anybody reads.
constexpr std::size_t kLongestPassword = 1000;

constexpr std::string_view kNoPassword = "no password was provided";
constexpr std::string_view kWrongPassword = "incorrect password attempt";

/// How a sudo has ended, and what it said in English.
struct SudoAnswer {
  bool started = false;
  int status = -1;
  std::string message;

  [[nodiscard]] bool says(std::string_view words) const { return message.find(words) != std::string::npos; }
};

/// Ours, with the messages in English because they are read.
Arguments environmentForAnswers(const std::string& askpass) {
  Arguments environment = currentEnvironment();
  std::erase_if(environment, [](const std::string& variable) {
    return variable.starts_with("LC_ALL=") || variable.starts_with("LANGUAGE=") ||
           variable.starts_with("SUDO_ASKPASS=");
  });
  environment.emplace_back("LC_ALL=C");
  if (!askpass.empty()) environment.push_back("SUDO_ASKPASS=" + askpass);
  return environment;
}

std::string beginningOf(int file) {
  std::string text(16UL << 10, '\0');
  const ssize_t count = ::pread(file, text.data(), text.size(), 0);
  text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
  return text;
}

struct SudoInput {
  int descriptor = -1;  ///< -1: the null device
  std::string askpass = {};
  int stop = -1;  ///< with a dialog: readable once it is to be taken down
};

/// Without a descriptor of the child nothing is served meanwhile.
int waitServing(pid_t child) {
  const UniqueDescriptor ended = openProcess(child);
  if (ended) waitUntilReadable(current().mainThread, ended.get());
  return waitForProgram(child);
}

/// Readable as soon as one of the two is.
UniqueDescriptor eitherOf(int one, int other) {
  UniqueDescriptor both = raisedDescriptor(UniqueDescriptor(::epoll_create1(EPOLL_CLOEXEC)));
  for (const int descriptor : {one, other}) {
    epoll_event event{};
    event.events = EPOLLIN;
    if (::epoll_ctl(both.get(), EPOLL_CTL_ADD, descriptor, &event) != 0) return {};
  }
  return both;
}

bool isReadable(int descriptor) {
  pollfd watched{descriptor, POLLIN, 0};
  return ::poll(&watched, 1, 0) > 0;
}

/// Asks the process group that the child leads to end until the child has. Its dialog may not be there yet
/// the first time.
void endGroup(pid_t child, int ended) {
  constexpr milliseconds kPause{50};
  constexpr int kPoliteRequests = 20;
  for (int request = 0; !isReadable(ended); ++request) {
    ::kill(-child, request < kPoliteRequests ? SIGTERM : SIGKILL);
    waitUntilReadable(current().mainThread, ended, kPause);
  }
}

int waitForDialog(pid_t child, int stop) {
  const UniqueDescriptor ended = openProcess(child);
  const UniqueDescriptor either = eitherOf(ended.get(), stop);
  if (!either) return waitServing(child);
  while (!isReadable(either.get())) waitUntilReadable(current().mainThread, either.get());
  if (isReadable(stop)) endGroup(child, ended.get());
  return waitForProgram(child);
}

/// Runs sudo to its end. Its messages go to a file in memory: a pipe would stay open as long as anything that
/// an askpass program has started.
SudoAnswer runSudo(const std::string& sudo, const Arguments& arguments, const SudoInput& input = {}) {
  const UniqueDescriptor messages = raisedDescriptor(UniqueDescriptor(::memfd_create("sudo", MFD_CLOEXEC)));
  ProgramToSpawn program{.command = {sudo},
                         .environment = environmentForAnswers(input.askpass),
                         .standardInput = input.descriptor,
                         .standardError = messages.get()};
  program.command.insert(program.command.end(), arguments.begin(), arguments.end());
  const auto child = spawnProgram(program);
  if (!child) return {};
  const int status = input.stop < 0 ? waitServing(child.value()) : waitForDialog(child.value(), input.stop);
  return {true, status, messages ? beginningOf(messages.get()) : ""};
}

/// sudo exits with 1 for every refusal; a dialog that was closed without an answer is told by its words.
AuthorizationStatus statusOf(const SudoAnswer& answer) {
  if (!answer.started || !WIFEXITED(answer.status)) return errAuthorizationInternal;
  if (WEXITSTATUS(answer.status) == 0) return errAuthorizationSuccess;
  if (WEXITSTATUS(answer.status) != 1) return errAuthorizationInternal;
  const bool nothingGiven = answer.says(kNoPassword);
  const bool wrongBefore = answer.says(kWrongPassword);
  return nothingGiven && !wrongBefore ? errAuthorizationCanceled : errAuthorizationDenied;
}

constexpr std::array<std::string_view, 6> kLecture = {
    "We trust you have received the usual lecture from the local System",
    "Administrator. It usually boils down to these three things:",
    "#1) Respect the privacy of others.",
    "#2) Think before you type.",
    "#3) With great power comes great responsibility.",
    "For security reasons, the password you type will not be visible."};

constexpr std::array<std::string_view, 3> kWithoutPassword = {
    "Sorry, try again.", "sudo: no password was provided", "sudo: a password is required"};

/// Said before anything else on a computer that no address is known of, whatever comes of the rest.
constexpr std::string_view kNoAddress = "sudo: unable to resolve host ";

bool isAmong(std::span<const std::string_view> lines, std::string_view line) {
  return std::find(lines.begin(), lines.end(), line) != lines.end();
}

/// Whether a run of sudo could have the password from somebody, by a dialog or given: who it was knows of a
/// wrong one, and of none.
enum class Asked { no, yes };

/// Why sudo refused, its lines joined; "" where it says nothing but that it got no password. What comes
/// before a question is a lecture, of sudo's own or an administrator's words, or of the answer before.
std::string reasonIn(std::string_view message, Asked asked) {
  std::string reason;
  while (!message.empty()) {
    const std::size_t end = std::min(message.find('\n'), message.size() - 1);
    const std::string_view line = foundation::trimmedPart(message.substr(0, end + 1));
    message.remove_prefix(end + 1);
    if (line == kAskpassAsks || line.starts_with(kAskpassAnswered)) {
      reason.clear();
      continue;
    }
    if (line.empty() || line.starts_with(kNoAddress) || isAmong(kLecture, line)) continue;
    if (asked == Asked::yes && isAmong(kWithoutPassword, line)) continue;
    reason.append(reason.empty() ? "" : "; ").append(line);
  }
  return reason;
}

/// Any other refusal than that of a password would come to nobody's notice.
void tellRefusal(const std::string& sudo, const SudoAnswer& answer, Asked asked,
                 const std::string& unsaid = "it is not said why") {
  if (!answer.started) return NSLog("No administrator rights: %@ cannot be started", sudo);
  if (asked == Asked::yes && answer.says(kWrongPassword)) return;
  const std::string reason = reasonIn(answer.message, asked);
  if (asked == Asked::yes && reason.empty() && answer.says(kNoPassword)) return;
  const std::string line = escaped(reason.empty() ? unsaid : reason);
  NSLog("No administrator rights: %@", line);
}

bool isProgram(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && ::access(path.c_str(), X_OK) == 0;
}

std::string askpassProgram() {
  std::string own = current().mainBundle.path() + "/Contents/SharedSupport/askpass";
  if (isProgram(own)) return own;
  const char* const named = std::getenv("SUDO_ASKPASS");  // NOLINT(concurrency-mt-unsafe): never set here
  return named != nullptr && named[0] == '/' && isProgram(named) ? named : "";
}

/// Root may reach what this user cannot look at, so only what is certainly no program counts as missing.
bool isMissing(const std::string& path) {
  if (!path.starts_with('/') || path.find('\0') != std::string::npos) return true;
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return errno != EACCES;
  return !S_ISREG(status.st_mode) || (status.st_mode & 0111U) == 0;
}

/// A pipe that holds one line and ends; wiped where the line was put together.
UniqueDescriptor pipeWithLine(const std::string& line) {
  Pipe pipe = makePipe();
  if (!pipe.reading) return {};
  std::array<char, kLongestPassword + 1> bytes{};
  std::copy(line.begin(), line.end(), bytes.begin());
  bytes.at(line.size()) = '\n';
  const ssize_t length = static_cast<ssize_t>(line.size() + 1);
  const bool written = ::write(pipe.writing.get(), bytes.data(), line.size() + 1) == length;
  ::explicit_bzero(bytes.data(), bytes.size());
  if (!written) return {};
  return std::move(pipe.reading);
}

bool isOneLine(const std::string& password) {
  return password.size() <= kLongestPassword && password.find('\n') == std::string::npos &&
         password.find('\0') == std::string::npos;
}

class ProgramOutput : public CommunicationsPipe {
 public:
  explicit ProgramOutput(UniqueDescriptor descriptor) : descriptor_(std::move(descriptor)) {}
  ~ProgramOutput() override {
    if (!ended_) readToTheEnd(std::move(descriptor_));
  }
  ProgramOutput(const ProgramOutput&) = delete;
  ProgramOutput& operator=(const ProgramOutput&) = delete;

  int getCharacter() override {
    if (next_ == filled_ && !fill()) return -1;
    return static_cast<unsigned char>(buffer_.at(next_++));
  }

 private:
  bool fill() {
    ssize_t count = -1;
    while (!ended_ && count < 0) {
      waitUntilReadable(current().mainThread, descriptor_.get());
      count = ::read(descriptor_.get(), buffer_.data(), buffer_.size());
      ended_ = count == 0 || (count < 0 && errno != EINTR);
    }
    next_ = 0;
    filled_ = count > 0 ? static_cast<std::size_t>(count) : 0;
    return filled_ > 0;
  }

  UniqueDescriptor descriptor_;
  std::array<char, 4096> buffer_{};
  std::size_t next_ = 0;
  std::size_t filled_ = 0;
  bool ended_ = false;
};

Arguments withCommand(Arguments options, const std::string& path, const Arguments& arguments) {
  options.emplace_back("--");
  options.push_back(path);
  options.insert(options.end(), arguments.begin(), arguments.end());
  return options;
}

}  // namespace

SudoAuthorization::SudoAuthorization(std::string sudo)
    : sudo_(std::move(sudo)),
      stop_(raisedDescriptor(UniqueDescriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)))) {}

SudoAuthorization::~SudoAuthorization() = default;

AuthorizationStatus SudoAuthorization::copyPrivilegedReference(AuthorizationFlags /*flags*/,
                                                               AuthorizationRef* reference) {
  *reference = nullptr;
  return errAuthorizationInvalidRef;
}

AuthorizationStatus SudoAuthorization::create(const std::optional<AuthorizationEnvironment>& /*environment*/,
                                              AuthorizationFlags /*flags*/, AuthorizationRef* reference) {
  const std::scoped_lock lock(mutex_);
  *reference = &handles_.emplace_back();
  references_.emplace(*reference, Origin::none);
  return errAuthorizationSuccess;
}

AuthorizationStatus SudoAuthorization::copyRights(AuthorizationRef reference, const Arguments& rights,
                                                  const std::optional<AuthorizationEnvironment>& environment,
                                                  AuthorizationFlags flags) {
  if (!isKnown(reference)) return errAuthorizationInvalidRef;
  for (const std::string& right : rights) {
    if (right != kAuthorizationRightAdmin) return errAuthorizationDenied;
  }
  if (environment) {
    const AuthorizationStatus status = validateByPassword(*environment);
    if (status == errAuthorizationSuccess) setOrigin(reference, Origin::givenPassword);
    return status;
  }
  AuthorizationStatus status = validate(Denial::untold);
  if (status != errAuthorizationDenied) return status;
  if ((flags & kAuthorizationFlagInteractionAllowed) == 0) return errAuthorizationInteractionNotAllowed;
  status = validateByDialog();
  if (status == errAuthorizationSuccess) setOrigin(reference, Origin::dialog);
  return status;
}

AuthorizationStatus SudoAuthorization::free(AuthorizationRef reference, AuthorizationFlags /*flags*/) {
  {
    const std::scoped_lock lock(mutex_);
    if (references_.erase(reference) == 0) return errAuthorizationInvalidRef;
  }
  return statusOf(runSudo(sudo_, {"-k"}));
}

AuthorizationStatus SudoAuthorization::executeWithPrivileges(AuthorizationRef reference,
                                                             const std::string& path,
                                                             AuthorizationFlags /*flags*/,
                                                             const Arguments& arguments,
                                                             std::unique_ptr<CommunicationsPipe>* pipe) {
  if (!isKnown(reference)) return errAuthorizationInvalidRef;
  if (isMissing(path)) return errAuthorizationToolExecuteFailure;
  const bool asksAgain = mayAskAgain(reference);
  AuthorizationStatus status = validate(asksAgain ? Denial::untold : Denial::told);
  if (status == errAuthorizationDenied && asksAgain) status = validateByDialog();
  if (status != errAuthorizationSuccess) return status;
  const SudoAnswer answer = runSudo(sudo_, withCommand({"-n", "-l"}, path, arguments));
  status = statusOf(answer);
  if (status == errAuthorizationSuccess) return start(path, arguments, pipe);
  tellRefusal(sudo_, answer, Asked::no, path + " is not allowed to be started");
  return status;
}

void SudoAuthorization::stopAsking() {
  ::eventfd_write(stop_.get(), 1);
}

bool SudoAuthorization::isKnown(AuthorizationRef reference) {
  const std::scoped_lock lock(mutex_);
  return references_.contains(reference);
}

void SudoAuthorization::setOrigin(AuthorizationRef reference, Origin origin) {
  const std::scoped_lock lock(mutex_);
  const auto found = references_.find(reference);
  if (found != references_.end()) found->second = origin;
}

bool SudoAuthorization::mayAskAgain(AuthorizationRef reference) {
  const std::scoped_lock lock(mutex_);
  const auto found = references_.find(reference);
  return found != references_.end() && found->second == Origin::dialog;
}

AuthorizationStatus SudoAuthorization::validate(Denial denial) {
  const SudoAnswer answer = runSudo(sudo_, {"-n", "-v"});
  const AuthorizationStatus status = statusOf(answer);
  const bool isUntold = status == errAuthorizationDenied && denial == Denial::untold;
  if (status != errAuthorizationSuccess && !isUntold) tellRefusal(sudo_, answer, Asked::no);
  return status;
}

AuthorizationStatus SudoAuthorization::validateByDialog() {
  const std::string askpass = askpassProgram();
  if (askpass.empty()) {
    NSLog("No administrator rights: no program is there that asks for the password");
    return errAuthorizationInteractionNotAllowed;
  }
  if (isReadable(stop_.get())) return errAuthorizationCanceled;
  const SudoAnswer answer = runSudo(sudo_, {"-A", "-v"}, {.askpass = askpass, .stop = stop_.get()});
  const AuthorizationStatus status = statusOf(answer);
  if (status == errAuthorizationSuccess) return status;
  if (isReadable(stop_.get())) return errAuthorizationCanceled;
  tellRefusal(sudo_, answer, Asked::yes);
  return status;
}

AuthorizationStatus SudoAuthorization::validateByPassword(const AuthorizationEnvironment& environment) {
  if (environment.username != current().usersAndFolders.userName()) return errAuthorizationDenied;
  if (!isOneLine(environment.password)) return errAuthorizationDenied;
  // Not "-k" together with "-v": then sudo would not keep what it has found out.
  const SudoAnswer dropped = runSudo(sudo_, {"-k"});
  if (const auto status = statusOf(dropped); status != errAuthorizationSuccess) {
    tellRefusal(sudo_, dropped, Asked::no);
    return status;
  }
  const UniqueDescriptor input = pipeWithLine(environment.password);
  if (!input) return errAuthorizationInternal;
  // The prompt stands where a dialog's note would.
  const SudoAnswer answer =
      runSudo(sudo_, {"-S", "-v", "-p", std::string(kAskpassAsks) + '\n'}, {.descriptor = input.get()});
  const AuthorizationStatus status = statusOf(answer);
  if (status != errAuthorizationSuccess) tellRefusal(sudo_, answer, Asked::yes);
  return status == errAuthorizationCanceled ? errAuthorizationDenied : status;
}

AuthorizationStatus SudoAuthorization::start(const std::string& path, const Arguments& arguments,
                                             std::unique_ptr<CommunicationsPipe>* pipe) {
  Pipe output = pipe == nullptr ? Pipe{} : makePipe();
  if (pipe != nullptr && !output.reading) return errAuthorizationInternal;
  // "-b" ends once the program is allowed and passed on: nothing that is given back after that, as by free,
  // can take the program's rights away before it runs.
  ProgramToSpawn program{.command = withCommand({sudo_, "-n", "-b"}, path, arguments),
                         .environment = currentEnvironment(),
                         .standardOutput = output.writing.get(),
                         .standardError = ownStream(STDERR_FILENO)};
  const auto child = spawnProgram(program);
  // What it says goes to standard error, which is the program's too.
  const SudoAnswer answer = child ? SudoAnswer{true, waitServing(child.value()), ""} : SudoAnswer{};
  const AuthorizationStatus status = statusOf(answer);
  if (status != errAuthorizationSuccess) {
    tellRefusal(sudo_, answer, Asked::no, sudo_ + " has not started " + path);
    return status;
  }
  if (pipe != nullptr) *pipe = std::make_unique<ProgramOutput>(std::move(output.reading));
  return errAuthorizationSuccess;
}

}  // namespace platform

/// Listens on a bus as a user's program does and writes down every signal that it hears. On the session bus
/// it also is the desktop's notification service (Desktop Notifications 1.2 of freedesktop.org) and writes
/// down what it is asked to show.
///
///     record-bus session|system ADDRESS FILE keep|click|expire
///
/// "click" answers every notification with a click on it and "expire" lets it run out, both after 100 ms;
/// "keep" leaves it on the screen.

#include <signal.h>
#include <sys/stat.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "workstation/Layout.h"
#include "workstation/RecordLine.h"

namespace workstation::session {
namespace {

constexpr std::uint64_t answerDelay = 100'000;  // microseconds, as sd-event counts
constexpr const char* serviceName = "org.freedesktop.Notifications";
constexpr const char* servicePath = "/org/freedesktop/Notifications";

using Leaves = std::vector<std::string>;

void appendLeaves(sd_bus_message* message, const std::string& path, Leaves& leaves);

std::string basicText(char type, const void* storage) {
  switch (type) {
    case SD_BUS_TYPE_BYTE:
      return std::to_string(*static_cast<const std::uint8_t*>(storage));
    case SD_BUS_TYPE_BOOLEAN:
      return *static_cast<const int*>(storage) != 0 ? "true" : "false";
    case SD_BUS_TYPE_INT16:
      return std::to_string(*static_cast<const std::int16_t*>(storage));
    case SD_BUS_TYPE_UINT16:
      return std::to_string(*static_cast<const std::uint16_t*>(storage));
    case SD_BUS_TYPE_INT32:
      return std::to_string(*static_cast<const std::int32_t*>(storage));
    case SD_BUS_TYPE_UINT32:
      return std::to_string(*static_cast<const std::uint32_t*>(storage));
    case SD_BUS_TYPE_INT64:
      return std::to_string(*static_cast<const std::int64_t*>(storage));
    case SD_BUS_TYPE_UINT64:
      return std::to_string(*static_cast<const std::uint64_t*>(storage));
    case SD_BUS_TYPE_DOUBLE:
      return std::to_string(*static_cast<const double*>(storage));
    case SD_BUS_TYPE_UNIX_FD:
      return "descriptor";
    default:
      return *static_cast<const char* const*>(storage);
  }
}

std::string readBasic(sd_bus_message* message, char type) {
  alignas(8) std::array<std::byte, 8> storage{};
  return sd_bus_message_read_basic(message, type, storage.data()) > 0 ? basicText(type, storage.data()) : "";
}

std::string joined(const std::string& path, const std::string& name) {
  return path.empty() ? name : path + '/' + name;
}

/// A dictionary's entry is named for its key: a value that is one text alone stands at the key itself.
void appendEntry(sd_bus_message* message, const char* contents, const std::string& path, Leaves& leaves) {
  if (sd_bus_message_enter_container(message, SD_BUS_TYPE_DICT_ENTRY, contents) <= 0) return;
  const auto key = joined(path, readBasic(message, contents[0]));
  Leaves value;
  appendLeaves(message, "", value);
  for (std::size_t i = 0; i + 1 < value.size(); i += 2) {
    const bool alone = value.size() == 2;
    leaves.push_back(alone ? key : key + '/' + value[i]);
    leaves.push_back(value[i + 1]);
  }
  sd_bus_message_exit_container(message);
}

/// Every value of a message that is no container, as a pair: where it is ("0", "2/output") and its text.
void appendLeaves(sd_bus_message* message, const std::string& path, Leaves& leaves) {
  char type = 0;
  const char* contents = nullptr;
  for (int index = 0; sd_bus_message_peek_type(message, &type, &contents) > 0; ++index) {
    const auto here = joined(path, std::to_string(index));
    if (contents == nullptr) {
      leaves.push_back(here);
      leaves.push_back(readBasic(message, type));
    } else if (type == SD_BUS_TYPE_DICT_ENTRY) {
      appendEntry(message, contents, path, leaves);
    } else if (sd_bus_message_enter_container(message, type, contents) > 0) {
      appendLeaves(message, here, leaves);
      sd_bus_message_exit_container(message);
    } else {
      return;
    }
  }
}

class Recorder {
 public:
  Recorder(std::string bus, std::string file, std::string answer)
      : busName_(std::move(bus)), file_(std::move(file)), answer_(std::move(answer)) {}

  int run(const char* address);

 private:
  bool connect(const char* address);
  bool serveNotifications();
  bool stopOnTermination();
  void write(const char* kind, sd_bus_message* message, const Leaves& leaves);
  void drain();
  int notify(sd_bus_message* message);
  int call(sd_bus_message* message);
  void answerLater();
  void answer(std::uint32_t id);

  static int heard(sd_bus_message* message, void* self, sd_bus_error* error);
  static int called(sd_bus_message* message, void* self, sd_bus_error* error);
  static int answerDue(sd_event_source* source, std::uint64_t when, void* self);
  static int terminated(sd_event_source* source, const signalfd_siginfo* info, void* self);

  std::string busName_;
  std::string file_;
  std::string answer_;
  sd_bus* bus_ = nullptr;
  sd_event* events_ = nullptr;
  std::uint32_t lastId_ = 0;
  std::vector<std::uint32_t> unanswered_;
};

struct Sender {
  uid_t user = static_cast<uid_t>(-1);
  pid_t process = 0;
};

/// Asked of the bus after the fact: a sender that is gone by then is unknown (user -1, process 0).
Sender senderOf(sd_bus* bus, sd_bus_message* message) {
  Sender sender;
  const char* name = sd_bus_message_get_sender(message);
  sd_bus_creds* credentials = nullptr;
  if (name == nullptr ||
      sd_bus_get_name_creds(bus, name, SD_BUS_CREDS_EUID | SD_BUS_CREDS_PID, &credentials) < 0) {
    return sender;
  }
  sd_bus_creds_get_euid(credentials, &sender.user);
  sd_bus_creds_get_pid(credentials, &sender.process);
  sd_bus_creds_unref(credentials);
  return sender;
}

std::string textOf(const char* text) {
  return text == nullptr ? std::string() : std::string(text);
}

void Recorder::write(const char* kind, sd_bus_message* message, const Leaves& leaves) {
  std::vector<std::string> words{busName_, textOf(sd_bus_message_get_interface(message)),
                                 textOf(sd_bus_message_get_member(message)),
                                 textOf(sd_bus_message_get_signature(message, 1))};
  words.insert(words.end(), leaves.begin(), leaves.end());
  auto line = recordNow(kind, textOf(sd_bus_message_get_path(message)), std::move(words));
  const auto sender = senderOf(bus_, message);
  line.user = line.effectiveUser = sender.user;
  line.process = sender.process;
  appendRecord(file_, line);
}

int Recorder::heard(sd_bus_message* message, void* self, sd_bus_error* /*error*/) {
  auto& recorder = *static_cast<Recorder*>(self);
  const char* ownName = nullptr;
  sd_bus_get_unique_name(recorder.bus_, &ownName);
  if (textOf(sd_bus_message_get_sender(message)) == textOf(ownName)) return 0;  // its own answers
  const auto interface = textOf(sd_bus_message_get_interface(message));
  if (interface == "org.freedesktop.DBus" || interface == "org.freedesktop.DBus.Local") return 0;
  Leaves leaves;
  appendLeaves(message, "", leaves);
  recorder.write("signal", message, leaves);
  return 0;
}

int Recorder::called(sd_bus_message* message, void* self, sd_bus_error* /*error*/) {
  return static_cast<Recorder*>(self)->call(message);
}

int Recorder::call(sd_bus_message* message) {
  const auto member = textOf(sd_bus_message_get_member(message));
  if (textOf(sd_bus_message_get_interface(message)) != serviceName) return 0;
  if (member == "Notify") return notify(message);
  if (member == "GetCapabilities") return sd_bus_reply_method_return(message, "as", 2, "body", "actions");
  if (member == "GetServerInformation") {
    return sd_bus_reply_method_return(message, "ssss", "sample workstation", "workstation", "1", "1.2");
  }
  if (member == "CloseNotification") {
    Leaves leaves;
    appendLeaves(message, "", leaves);
    write("close", message, leaves);
    return sd_bus_reply_method_return(message, "");
  }
  return 0;
}

int Recorder::notify(sd_bus_message* message) {
  Leaves leaves;
  appendLeaves(message, "", leaves);
  write("notify", message, leaves);
  const bool replaces = leaves.size() > 3 && leaves[3] != "0";
  const auto id =
      replaces ? static_cast<std::uint32_t>(std::strtoul(leaves[3].c_str(), nullptr, 10)) : ++lastId_;
  unanswered_.push_back(id);
  if (answer_ != "keep") answerLater();
  return sd_bus_reply_method_return(message, "u", id);
}

void Recorder::answerLater() {
  sd_event_add_time_relative(events_, nullptr, CLOCK_MONOTONIC, answerDelay, 1000, &Recorder::answerDue,
                             this);
}

int Recorder::answerDue(sd_event_source* /*source*/, std::uint64_t /*when*/, void* self) {
  auto& recorder = *static_cast<Recorder*>(self);
  for (const auto id : std::exchange(recorder.unanswered_, {})) recorder.answer(id);
  return 0;
}

void Recorder::answer(std::uint32_t id) {
  constexpr std::uint32_t expired = 1;
  constexpr std::uint32_t dismissed = 2;
  const bool clicked = answer_ == "click";
  if (clicked) sd_bus_emit_signal(bus_, servicePath, serviceName, "ActionInvoked", "us", id, "default");
  sd_bus_emit_signal(bus_, servicePath, serviceName, "NotificationClosed", "uu", id,
                     clicked ? dismissed : expired);
}

int Recorder::terminated(sd_event_source* /*source*/, const signalfd_siginfo* /*info*/, void* self) {
  auto& recorder = *static_cast<Recorder*>(self);
  recorder.drain();
  return sd_event_exit(recorder.events_, 0);
}

/// The bus answers in order: after a call has come back, all that it took in before has come too.
void Recorder::drain() {
  sd_bus_call_method(bus_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId",
                     nullptr, nullptr, "");
  while (sd_bus_process(bus_, nullptr) > 0) {
  }
}

bool Recorder::connect(const char* address) {
  return sd_bus_new(&bus_) >= 0 && sd_bus_set_address(bus_, address) >= 0 &&
         sd_bus_set_bus_client(bus_, 1) >= 0 && sd_bus_start(bus_) >= 0 &&
         sd_bus_add_match(bus_, nullptr, "type='signal'", &Recorder::heard, this) >= 0 &&
         sd_bus_attach_event(bus_, events_, SD_EVENT_PRIORITY_NORMAL) >= 0;
}

bool Recorder::serveNotifications() {
  return busName_ != "session" ||
         (sd_bus_add_object(bus_, nullptr, servicePath, &Recorder::called, this) >= 0 &&
          sd_bus_request_name(bus_, serviceName, 0) >= 0);
}

bool Recorder::stopOnTermination() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGTERM);
  return sigprocmask(SIG_BLOCK, &set, nullptr) == 0 &&
         sd_event_add_signal(events_, nullptr, SIGTERM, &Recorder::terminated, this) >= 0;
}

void sayReady() {
  const char* text = std::getenv(readyDescriptorVariable);
  if (text == nullptr) return;
  const int descriptor = static_cast<int>(std::strtol(text, nullptr, 10));
  if (::write(descriptor, "!", 1) == 1) ::close(descriptor);
}

int Recorder::run(const char* address) {
  ::umask(0);
  if (sd_event_default(&events_) < 0 || !stopOnTermination() || !connect(address) || !serveNotifications())
    return 1;
  sayReady();
  return sd_event_loop(events_) < 0 ? 1 : 0;
}

}  // namespace
}  // namespace workstation::session

int main(int argc, char** argv) {
  if (argc != 5) {
    std::fprintf(stderr, "usage: record-bus session|system ADDRESS FILE keep|click|expire\n");
    return 64;
  }
  return workstation::session::Recorder(argv[1], argv[3], argv[4]).run(argv[2]);
}

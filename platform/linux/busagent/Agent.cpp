#include "platform/linux/busagent/Agent.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <initializer_list>
#include <string_view>
#include <utility>

#include "platform/linux/busagent/Introspection.h"
#include "platform/linux/busagent/Values.h"

namespace busagent {

namespace {

using foundation::PropertyList;
using platform::bus::Outcome;
using platform::bus::Report;
using platform::bus::ReportKind;
using platform::bus::Request;
using platform::bus::RequestKind;
using std::chrono::steady_clock;

constexpr const char* kPosterPath = "/com/vordenworks/DistributedNotifications";
constexpr const char* kPosterInterface = "com.vordenworks.DistributedNotifications";
constexpr const char* kClientPath = "/com/vordenworks/Client";
constexpr std::chrono::seconds kLinger{60};

/// Leaves the program time to read that a client did not answer.
std::chrono::milliseconds patience(const Request& request) {
  using std::chrono::milliseconds;
  return std::max(request.timeLeft - milliseconds(150), milliseconds(1));
}

bool isError(const sdbus::Error& error, std::initializer_list<const char*> names) {
  return std::any_of(names.begin(), names.end(), [&](const char* name) {
    return error.getName() == std::string("org.freedesktop.DBus.Error.") + name;
  });
}

}  // namespace

Agent::Agent(Connection connection, int descriptor)
    : connection_(std::move(connection)),
      descriptor_(descriptor),
      calls_(*connection_.bus),
      poster_(sdbus::createObject(*connection_.bus, kPosterPath)),
      notifications_(calls_, [this](ReportKind kind, std::uint64_t number) {
        write({kind, number, Outcome::done, ""});
      }) {}

void Agent::run() {
  while (!isFinished()) {
    if (!connection_.bus->processPendingRequest()) waitForWork();
  }
}

bool Agent::isFinished() const {
  if (!lastMoment_) return false;
  const bool isIdle = calls_.waiting() == 0 && notifications_.shown() == 0;
  return isIdle || steady_clock::now() >= *lastMoment_;
}

void Agent::waitForWork() {
  const auto bus = connection_.bus->getEventLoopPollData();
  std::array<pollfd, 2> waited{{{bus.fd, bus.events, 0}, {lastMoment_ ? -1 : descriptor_, POLLIN, 0}}};
  constexpr int aSecond = 1000;  // so that the last moment is noticed
  const int busLimit = bus.getPollTimeout();
  const int limit = lastMoment_ && (busLimit < 0 || busLimit > aSecond) ? aSecond : busLimit;
  ::poll(waited.data(), waited.size(), limit);
  if (waited[1].revents != 0) readRequests();
}

void Agent::readRequests() {
  std::array<char, 65536> buffer{};
  const ssize_t count = ::recv(descriptor_, buffer.data(), buffer.size(), MSG_DONTWAIT);
  if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) return programHasGone();
  if (count > 0) frames_.append({buffer.data(), static_cast<std::size_t>(count)});
  while (const auto body = frames_.next()) {
    const auto request = platform::bus::decodedRequest(*body);
    if (!request) return programHasGone();
    carryOut(*request);
  }
  if (frames_.isBroken()) programHasGone();
}

void Agent::programHasGone() {
  lastMoment_ = steady_clock::now() + kLinger;
}

void Agent::carryOut(const Request& request) try {
  switch (request.kind) {
    case RequestKind::postSignal:
      return postSignal(request);
    case RequestKind::notify:
      return notify(request);
    case RequestKind::findClient:
      return findClient(request);
    case RequestKind::askClient:
      return askClient(request);
    case RequestKind::messageClient:
      return messageClient(request);
  }
} catch (const sdbus::Error&) {
  answer(request.number, Outcome::failed);
}

void Agent::postSignal(const Request& request) {
  auto signal = poster_->createSignal(kPosterInterface, "Posted");
  signal << request.fields.stringFor("name") << std::string();
  const auto* userInfo = request.fields.find("userInfo");
  const bool hasDictionary = userInfo != nullptr && userInfo->as<PropertyList::Dictionary>() != nullptr;
  append(signal, hasDictionary ? *userInfo : PropertyList());
  poster_->emitSignal(signal);
  // The bus takes messages in their order: its answer to this says that it has the signal.
  calls_.call(
      busItself(), "GetId", [](sdbus::MethodCall&) {}, patience(request),
      [this, number = request.number](sdbus::MethodReply&, const sdbus::Error* error) {
        answer(number, error == nullptr ? Outcome::done : Outcome::failed);
      });
}

void Agent::notify(const Request& request) {
  // Answered first, since a server that must be started takes longer than the program may wait.
  answer(request.number, connection_.isSystemBus ? Outcome::absent : Outcome::done);
  if (!connection_.isSystemBus) notifications_.show(request.fields);
}

void Agent::findClient(const Request& request) {
  const std::string name = request.fields.stringFor("name");
  calls_.call(
      busItself(), "GetNameOwner", [&](sdbus::MethodCall& call) { call << name; }, patience(request),
      [this, number = request.number](sdbus::MethodReply& reply, const sdbus::Error* error) {
        std::string owner;
        if (error == nullptr) reply >> owner;
        answer(number, error == nullptr ? Outcome::done : Outcome::absent, owner);
      });
}

void Agent::askClient(const Request& request) {
  const Target client{request.fields.stringFor("connection"), kClientPath,
                      "org.freedesktop.DBus.Introspectable"};
  calls_.call(
      client, "Introspect", [](sdbus::MethodCall&) {}, patience(request),
      [this, request](sdbus::MethodReply& reply, const sdbus::Error* error) {
        if (error != nullptr) return clientDidNotAnswer(request, *error);
        std::string document;
        reply >> document;
        const bool isThere = declaresMethod(document, request.fields.stringFor("interface"),
                                            request.fields.stringFor("method"));
        answer(request.number, isThere ? Outcome::done : Outcome::absent);
      });
}

void Agent::clientDidNotAnswer(const Request& request, const sdbus::Error& error) {
  if (isError(error, {"ServiceUnknown", "NameHasNoOwner"})) return answer(request.number, Outcome::gone);
  // Both for a client that left before it answered and for one that lets the time pass.
  if (isError(error, {"NoReply", "Timeout", "TimedOut"}))
    return answerByPresence(request, Outcome::unanswered);
  answer(request.number, Outcome::absent);
}

void Agent::messageClient(const Request& request) {
  const std::string connection = request.fields.stringFor("connection");
  const auto* arguments = request.fields.find("arguments");
  const auto* values = arguments == nullptr ? nullptr : arguments->as<PropertyList::Array>();
  calls_.send({connection, kClientPath, request.fields.stringFor("interface")},
              request.fields.stringFor("method"), [&](sdbus::MethodCall& call) {
                if (values == nullptr) return;
                for (const PropertyList& value : *values) append(call, value);
              });
  // Asked after the message: a client that is still there now was there to be given it.
  answerByPresence(request, Outcome::done);
}

void Agent::answerByPresence(const Request& request, Outcome whenThere) {
  const std::string connection = request.fields.stringFor("connection");
  calls_.call(
      busItself(), "NameHasOwner", [&](sdbus::MethodCall& call) { call << connection; }, patience(request),
      [this, whenThere, number = request.number](sdbus::MethodReply& reply, const sdbus::Error* error) {
        bool isThere = false;
        if (error == nullptr) reply >> isThere;
        answer(number, isThere ? whenThere : Outcome::gone);
      });
}

void Agent::answer(std::uint32_t number, Outcome outcome, const std::string& text) {
  write({ReportKind::answer, number, outcome, text});
}

void Agent::write(const Report& report) {
  if (lastMoment_) return;
  const std::string frame = encoded(report);
  // Reports are tiny and the program always reads: a socket that does not take one whole is of no use.
  const ssize_t sent = ::send(descriptor_, frame.data(), frame.size(), MSG_NOSIGNAL);
  if (sent != static_cast<ssize_t>(frame.size())) programHasGone();
}

}  // namespace busagent

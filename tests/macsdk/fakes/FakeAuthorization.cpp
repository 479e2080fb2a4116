#include "tests/macsdk/fakes/FakeAuthorization.h"

#include <unistd.h>

#include "platform/foundation/Text.h"

namespace fakes {

AuthorizationState& authorization() {
  static AuthorizationState only;
  return only;
}

}  // namespace fakes

namespace {

using fakes::authorization;
using foundation::stringWithFormat;

const char kReference = 'r';

std::string textOf(const AuthorizationItemSet* set) {
  if (set == nullptr) return "none";
  std::string text;
  for (UInt32 at = 0; at < set->count; ++at) {
    const AuthorizationItem& item = set->items[at];
    text += (at == 0 ? "" : ",") + std::string(item.name);
    if (item.value != nullptr)
      text += "=" + std::string(static_cast<const char*>(item.value), item.valueLength);
  }
  return text;
}

const char* nameOf(AuthorizationRef reference) {
  if (reference == nullptr) return "null";
  return reinterpret_cast<const char*>(reference) == &kReference ? "ours" : "unknown";
}

OSStatus record(const std::string& function, const std::string& arguments) {
  authorization().calls.push_back(function + " " + arguments);
  return authorization().statuses[function];
}

OSStatus handOut(OSStatus status, AuthorizationRef* reference) {
  // What the system leaves there on failure is nothing to be used.
  *reference = reinterpret_cast<AuthorizationRef>(status == 0 ? &kReference : "garbage");
  if (status == 0) ++authorization().held;
  return status;
}

[[noreturn]] void become(const char* path, char* const* arguments, int output) {
  std::vector<char*> command{const_cast<char*>(path)};
  while (*arguments != nullptr) command.push_back(*arguments++);
  command.push_back(nullptr);
  if (output >= 0) ::dup2(output, STDOUT_FILENO);
  ::execv(path, command.data());
  ::_exit(127);
}

}  // namespace

extern "C" {

OSStatus AuthorizationCreate(const AuthorizationRights* rights, const AuthorizationEnvironment* environment,
                             AuthorizationFlags flags, AuthorizationRef* reference) {
  return handOut(record("AuthorizationCreate", stringWithFormat("rights %@ environment %@ flags %u",
                                                                textOf(rights), textOf(environment), flags)),
                 reference);
}

OSStatus AuthorizationCopyPrivilegedReference(AuthorizationRef* reference, AuthorizationFlags flags) {
  return handOut(record("AuthorizationCopyPrivilegedReference", stringWithFormat("flags %u", flags)),
                 reference);
}

OSStatus AuthorizationCopyRights(AuthorizationRef reference, const AuthorizationRights* rights,
                                 const AuthorizationEnvironment* environment, AuthorizationFlags flags,
                                 AuthorizationRights** authorized) {
  const OSStatus status =
      record("AuthorizationCopyRights",
             stringWithFormat("%@ rights %@ environment %@ flags %u%@", nameOf(reference), textOf(rights),
                              textOf(environment), flags, authorized == nullptr ? "" : " copied"));
  const auto whenAsked = authorization().whenAsked;
  // Nothing is recorded from here on: who waits may have gone.
  return whenAsked && (flags & kAuthorizationFlagInteractionAllowed) != 0 ? whenAsked() : status;
}

OSStatus AuthorizationFree(AuthorizationRef reference, AuthorizationFlags flags) {
  --authorization().held;
  return record("AuthorizationFree", stringWithFormat("%@ flags %u", nameOf(reference), flags));
}

OSStatus AuthorizationExecuteWithPrivileges(AuthorizationRef reference, const char* path,
                                            AuthorizationFlags flags, char* const* arguments, FILE** pipe) {
  const OSStatus status = record("AuthorizationExecuteWithPrivileges",
                                 stringWithFormat("%@ %@ flags %u", nameOf(reference), path, flags));
  if (status != 0) return status;
  int ends[2] = {-1, authorization().standardOutput};
  if (pipe != nullptr && ::pipe(ends) != 0) return errAuthorizationInternal;
  const pid_t child = ::fork();
  if (child == 0) become(path, arguments, ends[1]);
  authorization().children.push_back(child);
  if (pipe != nullptr) {
    ::close(ends[1]);
    *pipe = ::fdopen(ends[0], "r");
  }
  return 0;
}

}  // extern "C"

#include "tests/macsdk/fakes/FakeAppleEvents.h"

#include <cstdlib>
#include <cstring>

#include "platform/foundation/Paths.h"
#include "platform/macos/CarbonFiles.h"
#include "platform/macos/CoreFoundationValues.h"

namespace fakes {

AppleEventState& appleEvents() {
  static AppleEventState only;
  return only;
}

}  // namespace fakes

namespace {

std::string lettersOf(FourCharCode code) {
  std::string text;
  for (const unsigned shift : {24U, 16U, 8U, 0U}) text += static_cast<char>((code >> shift) & 0xFFU);
  return text;
}

OSStatus record(const std::string& function, const std::string& arguments) {
  fakes::appleEvents().calls.push_back(function + " " + arguments);
  return fakes::appleEvents().statuses[function];
}

/// A failed call leaves an empty descriptor.
OSErr handOut(OSStatus status, DescType type, AEDesc* result) {
  static AEDataStorageType storage = nullptr;
  *result = {type, status == 0 ? &storage : nullptr};
  if (status == 0) ++fakes::appleEvents().held;
  return static_cast<OSErr>(status);
}

std::string signatureOf(const void* data, Size size) {
  FourCharCode code = 0;
  if (size != sizeof(code)) return "of another size";
  std::memcpy(&code, data, sizeof(code));
  return lettersOf(code);
}

}  // namespace

extern "C" {

OSErr AECreateDesc(DescType type, const void* data, Size size, AEDesc* result) {
  return handOut(record("AECreateDesc", lettersOf(type) + " " + signatureOf(data, size)), type, result);
}

OSErr AEDisposeDesc(AEDesc* descriptor) {
  --fakes::appleEvents().held;
  *descriptor = {};
  return 0;
}

OSErr AECreateAppleEvent(AEEventClass eventClass, AEEventID event, const AEAddressDesc* target,
                         AEReturnID returnID, AETransactionID transaction, AppleEvent* result) {
  return handOut(
      record("AECreateAppleEvent", lettersOf(eventClass) + " " + lettersOf(event) + " to " +
                                       lettersOf(target->descriptorType) + " " + std::to_string(returnID) +
                                       " " + std::to_string(transaction)),
      event, result);
}

OSErr AEPutParamPtr(AppleEvent*, AEKeyword keyword, DescType type, const void* data, Size size) {
  return static_cast<OSErr>(record(
      "AEPutParamPtr", lettersOf(keyword) + " " + lettersOf(type) + " " +
                           std::string(static_cast<const char*>(data), static_cast<std::size_t>(size))));
}

OSStatus AESendMessage(const AppleEvent*, AppleEvent* reply, AESendMode mode, long timeOut) {
  return record("AESendMessage", std::string(reply == nullptr ? "no reply " : "reply ") +
                                     std::to_string(mode) + " " + std::to_string(timeOut));
}

/// A reference holds the address's text, cut to what it has room for.
Boolean CFURLGetFSRef(CFURLRef address, platform::carbon::FSRef* reference) {
  if (record("CFURLGetFSRef", platform::textOf(CFURLGetString(address))) != 0) return 0;
  const std::string path = foundation::lastPathComponent(platform::textOf(CFURLGetString(address)));
  path.copy(reinterpret_cast<char*>(reference->hidden), sizeof reference->hidden - 1);
  return 1;
}

platform::carbon::OSErr FSNewAliasMinimal(const platform::carbon::FSRef* item,
                                          platform::carbon::Handle* alias) {
  const OSStatus status = record("FSNewAliasMinimal", reinterpret_cast<const char*>(item->hidden));
  if (status != 0) return static_cast<platform::carbon::OSErr>(status);
  ++fakes::appleEvents().held;
  *alias =
      new char*(::strdup(("alias of " + std::string(reinterpret_cast<const char*>(item->hidden))).c_str()));
  return 0;
}

platform::carbon::Size GetHandleSize(platform::carbon::Handle handle) {
  return static_cast<platform::carbon::Size>(std::strlen(*handle));
}

void DisposeHandle(platform::carbon::Handle handle) {
  --fakes::appleEvents().held;
  std::free(*handle);
  delete handle;
}

}  // extern "C"

#include "platform/macos/MacFileBrowser.h"

#include <CoreServices/CoreServices.h>
#include <sys/stat.h>

#include <cerrno>

#include "platform/macos/CoreFoundationValues.h"

namespace platform {
namespace {

constexpr FourCharCode fourCharCode(const char (&text)[5]) {
  FourCharCode code = 0;
  for (const char letter : {text[0], text[1], text[2], text[3]}) {
    code = (code << 8U) | static_cast<unsigned char>(letter);
  }
  return code;
}

constexpr FourCharCode kFinder = fourCharCode("MACS");
constexpr DescType kSignature = fourCharCode("sign");
constexpr DescType kFileAddress = fourCharCode("furl");
constexpr AEEventClass kFinderClass = fourCharCode("fndr");
constexpr AEEventID kItemChanged = fourCharCode("fupd");
constexpr AEKeyword kDirectObject = fourCharCode("----");

/// Owns what an Apple event's descriptor holds.
class Descriptor {
 public:
  Descriptor() = default;
  ~Descriptor() {
    if (descriptor_.dataHandle != nullptr) AEDisposeDesc(&descriptor_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  [[nodiscard]] AEDesc* get() { return &descriptor_; }

 private:
  AEDesc descriptor_{};
};

OSStatus makeEvent(const std::string& address, AppleEvent* event) {
  Descriptor finder;
  OSStatus status = AECreateDesc(kSignature, &kFinder, sizeof(kFinder), finder.get());
  if (status != noErr) return status;
  status = AECreateAppleEvent(kFinderClass, kItemChanged, finder.get(), kAutoGenerateReturnID,
                              kAnyTransactionID, event);
  if (status != noErr) return status;
  return AEPutParamPtr(event, kDirectObject, kFileAddress, address.data(), static_cast<Size>(address.size()));
}

}  // namespace

OSStatus MacFileBrowser::itemChanged(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return statusForErrno(errno);
  const CoreFoundationURL address = fileURL(path);
  if (!address) return memFullErr;
  Descriptor event;
  const OSStatus made = makeEvent(textOf(CFURLGetString(address.get())), event.get());
  return made == noErr ? AESendMessage(event.get(), nullptr, kAENoReply, kNoTimeOut) : made;
}

}  // namespace platform

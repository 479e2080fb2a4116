#include "platform/macos/MacFileBrowser.h"

#include <CoreServices/CoreServices.h>
#include <sys/stat.h>

#include <cerrno>

#include "platform/macos/CarbonFiles.h"
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
constexpr DescType kAlias = fourCharCode("alis");
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

/// What the event tells the item by.
struct Item {
  DescType type;
  std::string bytes;
};

/// How items are told since the first Finder; a system that lacks one of these has no aliases.
struct AliasFunctions {
  decltype(&carbon::CFURLGetFSRef) reference =
      carbon::lookedUp<decltype(carbon::CFURLGetFSRef)>("CFURLGetFSRef");
  decltype(&carbon::FSNewAliasMinimal) alias =
      carbon::lookedUp<decltype(carbon::FSNewAliasMinimal)>("FSNewAliasMinimal");
  decltype(&carbon::GetHandleSize) size = carbon::lookedUp<decltype(carbon::GetHandleSize)>("GetHandleSize");
  decltype(&carbon::DisposeHandle) dispose =
      carbon::lookedUp<decltype(carbon::DisposeHandle)>("DisposeHandle");

  [[nodiscard]] bool areThere() const {
    return reference != nullptr && alias != nullptr && size != nullptr && dispose != nullptr;
  }
};

OSStatus aliasOf(CFURLRef address, const AliasFunctions& functions, Item* item) {
  carbon::FSRef reference{};
  if (functions.reference(address, &reference) == 0) return fnfErr;
  carbon::Handle alias = nullptr;
  const carbon::OSErr made = functions.alias(&reference, &alias);
  if (made != noErr) return made;
  if (alias == nullptr) return memFullErr;
  *item = {kAlias, std::string(*alias, static_cast<std::size_t>(functions.size(alias)))};
  functions.dispose(alias);
  return noErr;
}

OSStatus itemAt(CFURLRef address, Item* item) {
  const AliasFunctions functions;
  if (functions.areThere()) return aliasOf(address, functions, item);
  *item = {kFileAddress, textOf(CFURLGetString(address))};
  return noErr;
}

OSStatus makeEvent(const Item& item, AppleEvent* event) {
  Descriptor finder;
  OSStatus status = AECreateDesc(kSignature, &kFinder, sizeof(kFinder), finder.get());
  if (status != noErr) return status;
  status = AECreateAppleEvent(kFinderClass, kItemChanged, finder.get(), kAutoGenerateReturnID,
                              kAnyTransactionID, event);
  if (status != noErr) return status;
  return AEPutParamPtr(event, kDirectObject, item.type, item.bytes.data(),
                       static_cast<Size>(item.bytes.size()));
}

}  // namespace

OSStatus MacFileBrowser::itemChanged(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return statusForErrno(errno);
  const CoreFoundationURL address = fileURL(path);
  if (!address) return memFullErr;
  Item item{};
  const OSStatus found = itemAt(address.get(), &item);
  if (found != noErr) return found;
  Descriptor event;
  const OSStatus made = makeEvent(item, event.get());
  return made == noErr ? AESendMessage(event.get(), nullptr, kAENoReply, kAEDefaultTimeout) : made;
}

}  // namespace platform

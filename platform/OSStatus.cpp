#include "platform/OSStatus.h"

#include <algorithm>
#include <array>

namespace platform {
namespace {

struct StatusText {
  OSStatus status;
  const char* name;
  const char* comment;
};

constexpr std::array<StatusText, 11> kTexts = {{
    {noErr, "noErr", "no error"},
    {dskFulErr, "dskFulErr", "disk full"},
    {ioErr, "ioErr", "I/O error"},
    {fnfErr, "fnfErr", "File not found"},
    {fLckdErr, "fLckdErr", "file is locked"},
    {fBsyErr, "fBsyErr", "File is busy (delete)"},
    {dupFNErr, "dupFNErr", "duplicate filename (rename)"},
    {paramErr, "paramErr", "error in user parameter list"},
    {permErr, "permErr", "permissions error (on file open)"},
    {memFullErr, "memFullErr", "Not enough room in heap zone"},
    {userCanceledErr, "userCanceledErr", "User canceled the operation"},
}};

const StatusText* textOf(OSStatus status) {
  const auto* const found = std::find_if(kTexts.begin(), kTexts.end(),
                                         [status](const auto& text) { return text.status == status; });
  return found == kTexts.end() ? nullptr : found;
}

}  // namespace

std::string errorString(OSStatus status) {
  const StatusText* const text = textOf(status);
  return text == nullptr ? "unknown" : text->name;
}

std::string commentString(OSStatus status) {
  const StatusText* const text = textOf(status);
  return text == nullptr ? std::to_string(status) : text->comment;
}

}  // namespace platform

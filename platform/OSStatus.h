#pragma once

#include <cerrno>
#include <cstdint>
#include <string>

namespace platform {

/// Results of the Mac's Carbon services, with the numbers of its MacErrors.h.
using OSStatus = std::int32_t;
inline constexpr OSStatus noErr = 0;
inline constexpr OSStatus dskFulErr = -34;
inline constexpr OSStatus ioErr = -36;
inline constexpr OSStatus fnfErr = -43;
inline constexpr OSStatus fLckdErr = -45;
inline constexpr OSStatus fBsyErr = -47;
inline constexpr OSStatus dupFNErr = -48;
inline constexpr OSStatus paramErr = -50;
inline constexpr OSStatus permErr = -54;
inline constexpr OSStatus memFullErr = -108;
inline constexpr OSStatus userCanceledErr = -128;

/// The status that stands for an errno value; ioErr where Carbon has no closer one.
[[nodiscard]] constexpr OSStatus statusForErrno(int code) {
  switch (code) {
    case 0:
      return noErr;
    case ENOENT:
    case ENOTDIR:
      return fnfErr;
    case EEXIST:
      return dupFNErr;
    case ENOSPC:
    case EDQUOT:
      return dskFulErr;
    case EACCES:
    case EPERM:
      return permErr;
    case EROFS:
      return fLckdErr;
    case EBUSY:
      return fBsyErr;
    case EINVAL:
    case ENAMETOOLONG:
    case ELOOP:
      return paramErr;
    case ENOMEM:
    case EAGAIN:
      return memFullErr;
    case ECANCELED:
      return userCanceledErr;
    default:
      return ioErr;
  }
}

/// The name of a status ("paramErr") and a comment on it, as MacErrors.h has them: GetMacOSStatusErrorString
/// and GetMacOSStatusCommentString. A status without one is "unknown"; its comment is its number.
[[nodiscard]] std::string errorString(OSStatus status);
[[nodiscard]] std::string commentString(OSStatus status);

}  // namespace platform

#pragma once

#include <string>
#include <vector>

namespace platform {

/// Whether a child is there to open something on the desktop.
enum class OpensOnDesktop { no, yes };

/// The environment that a child gets, as "NAME=value" strings.
///
/// An ordinary user's children get it as it is. Root's get what they need and nothing else of the caller's
/// choosing: HOME, USER, LOGNAME; TERM, LANG, LANGUAGE and LC_* where the value cannot be taken for a path or
/// a format ("/", "%"); TZ where it names no file outside of the system's own (an absolute path, ".."); what
/// opens something on the desktop also DISPLAY and WAYLAND_DISPLAY; and PATH=/usr/bin:/bin:/usr/sbin:/sbin.
[[nodiscard]] std::vector<std::string> childEnvironment(const char* const* environment, bool isRoot,
                                                        OpensOnDesktop opensOnDesktop = OpensOnDesktop::no);

}  // namespace platform

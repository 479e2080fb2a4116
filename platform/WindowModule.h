#pragma once

#include <chrono>
#include <optional>

#include "platform/Alerts.h"

namespace outlets {
class InterfaceOwner;
}

/// What a program and its window module are to each other. The module is a library of its own, loaded when
/// the desktop application starts, because it needs a toolkit and the rest of the program does not. Both
/// sides see each other through abstract classes alone, and nothing is thrown from one to the other: the
/// module may stand on another copy of the C++ library.
namespace platform {

/// An event loop that owns the main thread while a window is open.
class EventLoop {
 public:
  virtual ~EventLoop() = default;

  /// As MainThread::serveUntilReadable, handling the loop's own events too. It hears of queued work by
  /// watching WindowHost::workDescriptor() and does it by calling WindowHost::serveQueued(). The loop of an
  /// application that is to end comes back at once, before its time: what is left of the wait is the
  /// program's.
  virtual bool runUntilReadable(int descriptor, std::optional<std::chrono::nanoseconds> interval) = 0;
};

/// The module's side: the running application. Main thread only, except terminate().
class WindowApplication : public EventLoop, public Alerts {
 public:
  /// Ends the application without asking anybody; returns before it has.
  virtual void terminate() = 0;
};

/// The program's side: what a window needs of the platform. Main thread only.
class WindowHost {
 public:
  virtual ~WindowHost() = default;

  /// Readable while work is queued for the main thread; serveQueued() runs it.
  [[nodiscard]] virtual int workDescriptor() = 0;
  virtual void serveQueued() = 0;

  /// Readable once the process was asked to end (platform::Interruption); -1 where nothing tells.
  [[nodiscard]] virtual int endRequestDescriptor() = 0;

  /// From the first call to the second, waits on the main thread, alerts and requests to terminate are the
  /// application's.
  virtual void applicationDidStart(WindowApplication& application) = 0;
  virtual void applicationDidEnd() = 0;
};

/// The module's one entry, a function of C linkage: runs the application until it ends and answers the exit
/// status. `argv` ends with a null pointer and may be changed. Where it cannot open a display it says so in
/// one line on standard error and ends the process with status 1; the owner has heard nothing then.
using WindowModuleMain = int(int argc, char** argv, WindowHost* host, outlets::InterfaceOwner* owner);
inline constexpr const char* kWindowModuleMain = "QuillmendWindowMain";

}  // namespace platform

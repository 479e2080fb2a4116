#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <thread>

namespace window {

/// Watches the main loop of a program from outside, as a window manager does that wants to know whether a
/// window still answers: by _NET_WM_PING (freedesktop.org, Extended Window Manager Hints), which a toolkit
/// answers between two turns of its loop. It asks every few milliseconds, from its making on, on a connection
/// and a thread of its own. Throws std::runtime_error without a display.
class LoopWatch {
 public:
  explicit LoopWatch(std::uint32_t window);
  ~LoopWatch();
  LoopWatch(const LoopWatch&) = delete;
  LoopWatch& operator=(const LoopWatch&) = delete;

  struct Findings {
    int answers = 0;
    std::chrono::milliseconds longest{0};  ///< that an answer took; one that never came counts too
  };
  /// Ends the watch.
  Findings end();

 private:
  void watch(const std::function<bool()>& ping);

  std::atomic<bool> isEnding_ = false;
  Findings findings_;
  std::thread thread_;
};

}  // namespace window

#include "tests/platform/gnustep/LiveObjects.h"

// The declarations wanted are hidden from programs without debugging.
#undef NDEBUG
#import <Foundation/Foundation.h>

#include <map>

namespace gnustep {
namespace {

std::map<std::string, int> liveObjects() {
  std::map<std::string, int> live;
  @autoreleasepool {
    for (Class* kinds = GSDebugAllocationClassList(); *kinds != Nil; ++kinds) {
      live[[NSStringFromClass(*kinds) UTF8String]] = GSDebugAllocationCount(*kinds);
    }
  }
  return live;
}

constexpr int kTimes = 20;

}  // namespace

std::string leftBehindBy(const std::function<void()>& work) {
  std::string difference;
  @autoreleasepool {
    GSDebugAllocationActive(YES);
    work();
    const auto before = liveObjects();
    for (int time = 0; time < kTimes; ++time) work();
    for (const auto& [kind, count] : liveObjects()) {
      const auto found = before.find(kind);
      const int more = count - (found == before.end() ? 0 : found->second);
      // One that the libraries keep some of is not one that is left behind each time.
      if (more >= kTimes) difference += kind + " " + std::to_string(more) + " ";
    }
    GSDebugAllocationActive(NO);
  }
  return difference;
}

}  // namespace gnustep

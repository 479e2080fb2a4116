#include "tests/macsdk/fakes/FakeAppKit.h"

#include <CoreGraphics/CGSession.h>

#include <utility>

#include "platform/macos/AppKitPanel.h"

namespace {

bool applicationRuns = false;
bool hasSession = true;
std::vector<std::string> panels;

}  // namespace

namespace fakes {

void resetAppKit() {
  applicationRuns = false;
  hasSession = true;
  panels.clear();
}

void setApplicationRuns(bool runs) {
  applicationRuns = runs;
}

void setHasSession(bool has) {
  hasSession = has;
}

std::vector<std::string> takePanels() {
  return std::exchange(panels, {});
}

}  // namespace fakes

bool platform::runAppKitPanel(const std::string& title, const std::string& message) {
  if (!applicationRuns) return false;
  panels.push_back(title + ": " + message);
  return true;
}

CFDictionaryRef CGSessionCopyCurrentDictionary() {
  if (!hasSession) return nullptr;
  return CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                   &kCFTypeDictionaryValueCallBacks);
}

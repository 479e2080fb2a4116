#include <algorithm>

#include "app/TGAppController.h"
#include "diagnostics/TGLog.h"
#include "platform/Platform.h"
#include "services/TGTaskNotification.h"

using namespace std::chrono_literals;

namespace {

constexpr int kPolls = 21;
constexpr auto kPollInterval = 2s;

/// Sleeps a second at a time until more than the interval has passed; answers whether nothing came between.
template <typename IsInterrupted>
bool waitForNextPoll(IsInterrupted isInterrupted) {
  auto& clock = platform::current().clock;
  const auto start = clock.uptime();
  while (clock.uptime() - start <= kPollInterval) {
    clock.sleep(1s);
    if (isInterrupted()) return false;
  }
  return true;
}

bool isRunning(const std::string& bundleIdentifier) {
  const auto launched = platform::current().applications.launchedIdentifiers();
  return std::find(launched.begin(), launched.end(), bundleIdentifier) != launched.end();
}

}  // namespace

void TGAppController::sendQuitEventToApp(const std::string& name) {
  const auto error = platform::current().applications.askToQuit(name);
  if (!error) return;
  // The log's text has two blanks before the dash, the client's has one, on purpose: each keeps the form its
  // readers know.
  TGLog::appendLog("Unable to quit %@ application  - %@", name, *error);
  TGTaskNotification::postTaskErrorString(
      foundation::stringWithFormat("Unable to quit %@ application - %@", name, *error));
}

bool TGAppController::closeAppWithBundleID(const std::string& bundleIdentifier) {
  // Every version of Compressor goes by this name, so the identifier decides only what is waited for.
  platform::current().mainThread.perform([this] { sendQuitEventToApp("Compressor"); }, platform::Wait::yes);
  const auto isInterrupted = [this] { return endRequest().has_value(); };
  for (int poll = 0; poll < kPolls; ++poll) {
    if (!waitForNextPoll(isInterrupted)) return !isRunning(bundleIdentifier);
    if (!isRunning(bundleIdentifier)) return true;
  }
  return false;
}

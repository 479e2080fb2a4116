#include "platform/WindowModule.h"

#include <cstdlib>
#include <fstream>
#include <string_view>

namespace {

/// An application whose waits are over at once and whose panels are written down.
class RecordedApplication : public platform::WindowApplication {
 public:
  explicit RecordedApplication(std::ofstream& record) : record_(record) {}
  bool runUntilReadable(int descriptor, std::optional<std::chrono::nanoseconds>) override {
    record_ << "[wait " << descriptor << "]";
    return true;
  }
  void runPanel(const std::string& title, const std::string& message) override {
    record_ << "[panel " << title << ": " << message << "]" << std::flush;
  }
  void terminate() override { record_ << "[terminate]" << std::flush; }

 private:
  std::ofstream& record_;
};

}  // namespace

/// A window module for tests: writes its arguments, and what it is asked for between its start and its end,
/// to the file that WINDOW_MODULE_RECORD names; answers 42, or ends the process where WINDOW_MODULE_EXITS is
/// set. Queued work is what asks it.
extern "C" int QuillmendWindowMain(int argc, char** argv, platform::WindowHost* host,
                                   outlets::InterfaceOwner* owner) {
  std::ofstream record(std::getenv("WINDOW_MODULE_RECORD"));
  for (int index = 0; index < argc; ++index) record << '[' << argv[index] << ']';
  RecordedApplication application(record);
  host->applicationDidStart(application);
  host->serveQueued();
  if (host->endRequestDescriptor() >= 0) record << "[hears]";
  if (std::getenv("WINDOW_MODULE_EXITS") != nullptr) std::exit(7);
  host->applicationDidEnd();
  return argv[argc] == nullptr && owner != nullptr ? 42 : 0;
}

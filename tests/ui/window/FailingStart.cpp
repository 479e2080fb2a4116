#include <sys/eventfd.h>
#include <unistd.h>

#include "tests/ui/window/FakeOwner.h"
#include "ui/window/Application.h"

namespace {

/// A program without work for its main thread.
class PlainHost : public platform::WindowHost {
 public:
  ~PlainHost() override { ::close(noWork_); }
  int workDescriptor() override { return noWork_; }
  void serveQueued() override {}
  int endRequestDescriptor() override { return -1; }
  void applicationDidStart(platform::WindowApplication& started) override { application = &started; }
  void applicationDidEnd() override { application = nullptr; }

  platform::WindowApplication* application = nullptr;

 private:
  int noWork_ = ::eventfd(0, EFD_CLOEXEC);
};

}  // namespace

/// The desktop application with an owner whose start cannot be completed.
int main(int argc, char* argv[]) {
  PlainHost host;
  FakeOwner owner;
  owner.startsUp = false;
  owner.whenLoaded = [&host] {
    host.application->runPanel(
        "Quillmend cannot be started",
        "Its start could not be completed, and it quits. Its log and the system log say why.");
  };
  return window::runApplication(argc, argv, host, owner);
}

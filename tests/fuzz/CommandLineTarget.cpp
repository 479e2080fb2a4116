#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <optional>

#include "app/CommandLine.h"
#include "diagnostics/TGLog.h"
#include "platform/fakes/FakePlatform.h"
#include "tests/fuzz/Input.h"
#include "tests/fuzz/Targets.h"

namespace fuzz {
namespace {

constexpr const char* kTool = "/usr/sbin/qmasterprefs";

enum class Run { help, sharing, repair, desktop };

std::string inSmallLetters(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
  return text;
}

/// What the arguments ask for: the first that is done at once, else a repair, else the window.
Run wanted(const std::vector<std::string>& arguments) {
  Run run = Run::desktop;
  for (const std::string& given : arguments) {
    const std::string argument = inSmallLetters(given);
    if (argument == "-help") return Run::help;
    const std::array<const char*, 3> sharing = {"-stopsharing", "-startsharing", "-restartsharing"};
    if (std::find(sharing.begin(), sharing.end(), argument) != sharing.end()) return Run::sharing;
    if (argument == "-repair" || argument == "-auto") run = Run::repair;
  }
  return run;
}

/// A Mac on which root runs the program.
class Mac {
 public:
  Mac() {
    mac_.files.makeFolder("/Users/alice/Library/Preferences");
    mac_.files.makeFolder("/Library/Logs/Vordenworks");
    mac_.files.makeFile(kTool);
    mac_.users.user = 0;
    mac_.users.name = "root";
    mac_.users.home = "/var/root";
    mac_.users.homes["root"] = "/var/root";
  }
  ~Mac() { TGLog::finishWriting(); }
  Mac(const Mac&) = delete;
  Mac& operator=(const Mac&) = delete;

  /// What the program did, told by what it used.
  Run run(const std::vector<std::string>& arguments) {
    mac_.processInformation.argumentList = arguments;
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> output(std::tmpfile(), &std::fclose);
    require(output != nullptr, "there is a file for the output");
    require(runCommandLine(arguments, output.get()) == 0, "the status is zero");
    if (std::ftell(output.get()) > 0) return Run::help;
    if (!mac_.recorder.only({"desktop"}).empty()) return Run::desktop;
    return mac_.distributedNotifications.posted.empty() ? Run::sharing : Run::repair;
  }

 private:
  fakes::FakePlatform mac_;
};

}  // namespace

void runProgram(std::string_view input) {
  Mac mac;
  const auto arguments = pieces(input);
  require(mac.run(arguments) == wanted(arguments), "the program does what its arguments ask for");
}

}  // namespace fuzz

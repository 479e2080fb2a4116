#pragma once

#include <string>
#include <vector>

#include "tests/workstation/RepairOutcome.h"
#include "workstation/Components.h"

/// What a repair says, writes down and calls, line by line, to compare a whole run with.
namespace workstation {

inline constexpr const char* tool = "/usr/sbin/qmasterprefs";
inline constexpr const char* tool4 =
    "/Applications/Compressor.app/Contents/PlugIns/Compressor/CompressorKit.bundle/qmasterprefs";
/// The spool folder that a sample's services file names with a tilde, which to a repair by root is root's.
inline constexpr const char* rootsSpool4 = "/var/root/Library/Application Support/Apple Qmaster/Storage";
inline constexpr const char* successSummary =
    "Processing complete. You may need to allow up to 30 seconds for Qmaster services to start up again.";
inline constexpr const char* errorSummary = "Processing complete. Errors were found during processing.";
inline constexpr const char* noNameText =
    "Your computer does not have a computer name or local hostname set. You must first add one in the "
    "Sharing pane of System Preferences (in the text box at the top) and then run Quillmend again. See the "
    "Quillmend user manual for more details.";

class RepairScript {
 public:
  struct Flags {
    bool trash = false;
    bool layout = false;
    bool silent = false;
    std::string user = "/Users/alice";  ///< whose home the user's folders lie in
  };
  RepairScript() : RepairScript(Flags{}) {}
  explicit RepairScript(Flags flags) : flags_(std::move(flags)) {}

  // The stages, in the order in which a repair goes through them.
  RepairScript& begun();
  RepairScript& closed3() { return say("Waiting for Compressor to exit..."); }
  RepairScript& closed4() { return say("Waiting for Compressor 4 to exit..."); }
  RepairScript& detected(const std::string& version, const std::string& line);
  RepairScript& stopped3();
  RepairScript& stopped4(const std::string& preferencesTool = tool4);
  RepairScript& trashed();
  RepairScript& checked(const std::vector<std::string>& problems = {});
  RepairScript& cleaned3(const std::vector<std::string>& spool = spoolFolders(false));
  RepairScript& cleaned4(const std::vector<std::string>& furtherSpool = {rootsSpool4});
  RepairScript& nameChecked(bool hasName = true);
  RepairScript& starting() { return say("Attempting to start Qmaster..."); }
  RepairScript& started30();
  RepairScript& started35();
  RepairScript& started4();
  RepairScript& ended(const std::string& summary = successSummary, bool hasMenu = true);

  // A version's stages at a stroke, from its detection to its history.
  RepairScript& repaired30();
  RepairScript& repaired35();
  RepairScript& repaired4();

  RepairScript& say(const std::string& line);    ///< on the console and in the log
  RepairScript& note(const std::string& line);   ///< in the log only
  RepairScript& print(const std::string& line);  ///< on standard error only, in a silent run too
  RepairScript& call(const std::string& commandLine);

  [[nodiscard]] const std::vector<std::string>& console() const { return console_; }
  [[nodiscard]] const std::vector<std::string>& log() const { return log_; }
  [[nodiscard]] const std::vector<std::string>& calls() const { return calls_; }

  /// What the finish notification carries.
  [[nodiscard]] std::string output() const;

 private:
  RepairScript& cachesRemoved(const std::string& support);
  RepairScript& spoolRemoved(const std::vector<std::string>& folders);
  RepairScript& historyCleared(const std::vector<std::string>& folders);
  [[nodiscard]] std::string inUserSupport(const std::string& name) const;

  Flags flags_;
  std::vector<std::string> console_;
  std::vector<std::string> said_;
  std::vector<std::string> log_;
  std::vector<std::string> calls_;
};

/// That a run as root was this one: status, output, console, log, calls, notifications.
void expectRun(const Volume& volume, const Outcome& outcome, const RepairScript& script);

/// The same but for the log, which a run without a place for it says on the console instead.
void expectRunBeforeLog(const Outcome& outcome, const RepairScript& script);

/// That the log at that path begins as every log does, and holds these entries.
void expectLog(const Volume& volume, const std::string& path, const std::vector<std::string>& entries);

/// Where cache files lie.
[[nodiscard]] std::vector<std::string> cachesIn(std::string_view support);

/// The two files that a sample has in a history folder.
[[nodiscard]] std::vector<std::string> historyIn(const std::string& folder);

/// All of them, sorted.
[[nodiscard]] std::vector<std::string> together(const std::vector<std::vector<std::string>>& lists);

/// What a repair without flags takes away from a sample with the one version on it.
[[nodiscard]] std::vector<std::string> trashedOf3();
[[nodiscard]] std::vector<std::string> trashedOf4();

}  // namespace workstation

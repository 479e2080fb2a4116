#include <algorithm>
#include <array>
#include <utility>

#include "app/RepairRun.h"
#include "diagnostics/TGException.h"
#include "diagnostics/TGLog.h"
#include "platform/Platform.h"
#include "platform/foundation/Paths.h"
#include "services/TGAuthorization.h"
#include "services/TGLocalPaths.h"
#include "ui/TGGrowl.h"

using foundation::appendingPathComponent;
using foundation::stringWithFormat;
using platform::Wait;
using namespace std::chrono_literals;

namespace {

constexpr const char* kCompressor3 = "com.apple.compressor.Compressor";
constexpr const char* kCompressor4 = "com.apple.Compressor";
constexpr const char* kFinishedNotification = "tgQuillmendScanFinished";
constexpr const char* kErrorsFound = "Errors were found during processing.";
constexpr const char* kAllowTime =
    "You may need to allow up to 30 seconds for Qmaster services to start up again.";

/// The colons are part of the names.
constexpr std::array<const char*, 8> kCaches = {
    "Apple Qmaster/servicecontroller:com.apple.stomp.transcoderx.plist",
    "Apple Qmaster/servicecontroller:com.apple.qmaster.executor.plist",
    "Apple Qmaster/servicecontroller:com.apple.stomp.transcoder.stomp.plist",
    "Apple Qmaster/jobcontroller:com.apple.qmaster.cluster.admin.plist",
    "Apple Qmaster/jobcontroller:com.apple.compressor.cluster.admin.plist",
    "Apple Qmaster/requestprocessor:com.apple.qmaster.contentcontroller.plist",
    "Apple Qmaster/requestprocessor:com.apple.compressor.contentcontroller.plist",
    "Apple Qmaster/contentcontroller:com.apple.qmaster.contentagent.plist"};

bool contains(const std::vector<std::string>& list, const std::string& item) {
  return std::find(list.begin(), list.end(), item) != list.end();
}

template <typename Work>
void onMainThread(Work&& work) {
  platform::current().mainThread.perform(std::forward<Work>(work), Wait::yes);
}

bool isOn(const outlets::Switch* box) {
  return box != nullptr && box->state() == outlets::State::on;
}

std::string interruptedBy(int signal) {
  return stringWithFormat("Repair interrupted by signal %i.", signal);
}

bool flag(const foundation::PropertyList& options, const char* key) {
  const auto* value = options.find(key);
  return value != nullptr && value->boolValue();
}

}  // namespace

void TGAppController::repair() {
  if (isRepairing()) return;
  // Where the system has no thread left nothing has begun: the button can be tried again.
  guarded("-[TGAppController repair:]", [this] { repairThread().detach(); });
}

std::thread TGAppController::repairThread() {
  const foundation::PropertyList options =
      foundation::PropertyList::Dictionary{{"shouldResetLayout", isOn(resetLayoutCheck)},
                                           {"shouldTrash", isOn(trashPrefs)},
                                           {"shouldResetQmaster", isOn(resetQmasterCheck)}};
  isRepairing_ = true;
  try {
    return std::thread([this, options] { threadedRepair(options); });
  } catch (...) {
    isRepairing_ = false;
    throw;
  }
}

void TGAppController::threadedRepair(const foundation::PropertyList& options) {
  const auto shouldTrash = flag(options, "shouldTrash") ? ShouldTrash::yes : ShouldTrash::no;
  const auto shouldResetLayout =
      flag(options, "shouldResetLayout") ? ShouldResetLayout::yes : ShouldResetLayout::no;
  // "shouldResetQmaster" is not read, on purpose: a repair without its Qmaster reset would repair nothing.
  onMainThread([this] { repairStart(); });
  startRepair(shouldTrash, shouldResetLayout, Silent::no);
  onMainThread([this] { repairEnd(); });
}

void TGAppController::repairStart() {
  if (repairButton != nullptr) repairButton->setEnabled(false);
  if (errorText != nullptr) errorText->setEditable(true);
}

void TGAppController::repairEnd() {
  if (errorText != nullptr) errorText->setEditable(false);
  if (repairProgress != nullptr) brokeOff_ ? repairProgress->showBrokenOff() : repairProgress->hide();
  if (repairButton != nullptr) repairButton->setEnabled(true);
  if (endReason_ != nullptr) platform::current().desktopApplication.terminate();
  isRepairing_ = false;
}

void TGAppController::endRepairAndTerminate() {
  endSignal_ = platform::current().interruption.requested().value_or(0);
  endRepair("Repair stopped.");
}

void TGAppController::endRepair(const char* reason) {
  endReason_ = reason;
  // Without rights nothing was touched yet. With them they may be needed, and asked for once more, to start
  // again what was stopped.
  if (!TGAuthorization::sharedController()->isAuthorized()) platform::current().authorization.stopAsking();
}

std::optional<std::string> TGAppController::endRequest() const {
  if (!hasGUI_) {
    const auto signal = platform::current().interruption.requested();
    return signal ? std::optional(interruptedBy(*signal)) : std::nullopt;
  }
  const char* const reason = endReason_;
  if (reason == nullptr) return std::nullopt;
  const int signal = endSignal_;
  return signal == 0 ? reason : interruptedBy(signal);
}

void TGAppController::startRepair(ShouldTrash flag, Silent isSilent) {
  startRepair(flag, flag == ShouldTrash::yes ? ShouldResetLayout::yes : ShouldResetLayout::no, isSilent);
}

void TGAppController::startRepair(ShouldTrash shouldTrash, ShouldResetLayout shouldResetLayout,
                                  Silent isSilent) {
  brokeOff_ = !guarded("-[TGAppController startRepair:shouldResetLayout:isSilent:]",
                       [&] { RepairRun(*this, shouldTrash, shouldResetLayout, isSilent).perform(); });
}

/// A version's stages, in their order.
const std::array<RepairRun::Stage, 8> RepairRun::kVersionStages = {{
    {"Stopping Qmaster", &RepairRun::stopQmaster},
    {"Looking for Compressor's folders", &RepairRun::fetchBaseFolders},
    {"Trashing preferences", &RepairRun::trashPreferences},
    {"Resetting window layout", &RepairRun::resetLayout},
    {"Checking file permissions", &RepairRun::checkPermissions},
    {"Removing caches", &RepairRun::removeCaches},
    {"Removing temporary spool data", &RepairRun::removeSpoolData},
    {"Clearing history", &RepairRun::clearHistory},
}};

RepairRun::RepairRun(TGAppController& controller, ShouldTrash shouldTrash,
                     ShouldResetLayout shouldResetLayout, Silent isSilent)
    : controller_(controller),
      shouldTrash_(shouldTrash == ShouldTrash::yes),
      shouldResetLayout_(shouldResetLayout == ShouldResetLayout::yes),
      isSilent_(isSilent == Silent::yes) {}

void RepairRun::perform() {
  growl("Repairing Compressor...");
  enterStage("Waiting for authorization");
  TGLog::appendLog("Starting repair...");
  if (!authorize()) {
    reportRefusal();
    return;
  }
  if (controller_.hasGUI()) onMainThread([this] { controller_.clearErrorText(); });
  boldLine("Starting repair...");
  closeCompressors();
  repairVersions();
  checkComputerName();
  restartQmaster();
  TGAuthorization::sharedController()->authEnd();
  report();
  reopenCompressors();
}

bool RepairRun::authorize() {
  auto* const authorization = TGAuthorization::sharedController();
  if (!authorization->isAuthorized()) authorization->authStart();
  return authorization->isAuthorized();
}

void RepairRun::reportRefusal() {
  if (controller_.hasGUI()) return;
  const foundation::PropertyList userInfo =
      foundation::PropertyList::Dictionary{{"output", "Unable to authorize. Repair canceled."}};
  platform::current().distributedNotifications.post(kFinishedNotification, userInfo);
  growl("Repair failed.");
}

void RepairRun::closeCompressors() {
  enterStage("Closing Compressor");
  const auto launched = platform::current().applications.launchedIdentifiers();
  closedOldCompressor_ = closeCompressor(launched, kCompressor3, "Waiting for Compressor to exit...");
  closedCompressor4_ = closeCompressor(launched, kCompressor4, "Waiting for Compressor 4 to exit...");
  // Both go by one name, so version 4 has been asked along with the old one, also where an interrupted repair
  // does not come to wait for it.
  if (closedOldCompressor_ && contains(launched, kCompressor4)) closedCompressor4_ = true;
}

/// Answers whether it was running: one that would not quit is reopened too, which brings it to the front.
bool RepairRun::closeCompressor(const std::vector<std::string>& launched, const std::string& identifier,
                                const std::string& message) {
  if (!goesOn() || !contains(launched, identifier)) return false;
  boldLine(message);
  controller_.closeAppWithBundleID(identifier);
  return true;
}

void RepairRun::repairVersions() {
  versions_ = controller_.compressorVersions();
  stages_ = versions_.size() * kVersionStages.size() + kClosingStages;
  for (const std::string& version : versions_) {
    if (!goesOn()) return;
    repairVersion(version);
  }
}

void RepairRun::repairVersion(const std::string& version) {
  classify(version);
  stoppedQmaster_ = true;
  for (const Stage& stage : kVersionStages) {
    enterStage(stage.title);
    (this->*stage.work)();
    if (!goesOn()) return;
  }
}

void RepairRun::classify(const std::string& version) {
  TGLog::appendLog("Detected Compressor version %@...", version);
  if (version == "3.0") {
    versionCode_ = VersionCode::compressor30;
    line("Detected Compressor 3.0.x.");
  } else if (version == "3.5") {
    versionCode_ = VersionCode::compressor35;
    line("Detected Compressor 3.5.x.");
  } else if (version == "4.0") {
    versionCode_ = VersionCode::compressor4;
    line("Detected Compressor 4.x.");
  } else {
    versionCode_ = VersionCode::unsupported;
    errorLine("Unsupported Compressor version... running in limited mode.");
  }
}

void RepairRun::stopQmaster() {
  line("Stopping Qmaster...");
  if (versionCode_ == VersionCode::compressor4) {
    controller_.qmaster4CancelJobs();
    controller_.qmaster4StopSharing();
  } else {
    controller_.qmasterCancelJobs();
    controller_.qmasterStopSharing();
  }
  controller_.stopAll();
}

void RepairRun::fetchBaseFolders() {
  folders_ = {.adminApps = TGLocalPaths::adminApplicationDirectory(Domain::local),
              .userAppSupport = TGLocalPaths::appSupportDirectory(Domain::user),
              .localAppSupport = TGLocalPaths::appSupportDirectory(Domain::local),
              .localLibrary = TGLocalPaths::libraryDirectory(Domain::local),
              .systemLibrary = TGLocalPaths::systemLibraryDirectory()};
}

void RepairRun::trashPreferences() {
  if (!shouldTrash_) return;
  line("Trashing preferences...");
  if (versionCode_ == VersionCode::compressor4) {
    controller_.trashCompressor4Prefs(ShowAlert::no);
  } else {
    controller_.trashCompressorPrefs(ShowAlert::no);
  }
}

void RepairRun::resetLayout() {
  if (!shouldResetLayout_) return;
  line("Resetting window layout...");
  controller_.resetWindowLayout(ShowAlert::no);
}

void RepairRun::removeCaches() {
  line("Removing caches...");
  const auto& base =
      versionCode_ == VersionCode::compressor4 ? folders_.userAppSupport : folders_.localAppSupport;
  if (!base) return;
  for (const char* name : kCaches) controller_.authTrashFile(appendingPathComponent(*base, name));
}

void RepairRun::removeSpoolData() {
  line("Removing temporary spool data...");
  versionCode_ == VersionCode::compressor4 ? removeSpoolData4() : removeSpoolData3();
}

void RepairRun::removeSpoolData3() {
  controller_.authTrashSpoolFolder("/private/var/spool/qmaster");
  const auto configured = controller_.qmasterSpoolPath();
  if (configured && !configured->ends_with("var/spool/qmaster")) {
    controller_.authTrashSpoolFolder(*configured);
  }
}

void RepairRun::removeSpoolData4() {
  controller_.authTrashSpoolFolder("/Users/Shared/Library/Application Support/Apple Qmaster/Storage");
  trashSpoolFolder(folders_.userAppSupport, "Apple Qmaster/Storage");
  trashSpoolFolder(folders_.localAppSupport, "Apple Qmaster/Storage");
  const auto configured = controller_.qmaster4SpoolPath();
  // Compared with the user's folder only: a configured path that is the local one is emptied twice, and the
  // second time finds nothing. On purpose.
  const auto usual =
      folders_.userAppSupport
          ? std::optional(appendingPathComponent(*folders_.userAppSupport, "Apple Qmaster/Storage"))
          : std::nullopt;
  if (configured && configured != usual) controller_.authTrashSpoolFolder(*configured);
}

void RepairRun::trashSpoolFolder(const std::optional<std::string>& base, const std::string& name) {
  if (base) controller_.authTrashSpoolFolder(appendingPathComponent(*base, name));
}

void RepairRun::clearHistory() {
  line("Clearing history...");
  if (versionCode_ == VersionCode::compressor4) {
    trashFolderContents(folders_.userAppSupport, "Apple Qmaster/History");
    trashFolderContents(folders_.userAppSupport, "Compressor/History/V4");
  } else {
    trashFolderContents(folders_.userAppSupport, "Compressor/History");
  }
}

void RepairRun::trashFolderContents(const std::optional<std::string>& base, const std::string& name) {
  if (base) controller_.authTrashFolderContents(appendingPathComponent(*base, name));
}

void RepairRun::checkComputerName() {
  if (!goesOn()) return;
  enterStage("Checking computer name");
  line("Checking computer name...");
  if (controller_.checkComputerName()) return;
  // No error of the repair's: Compressor is whole, the computer's settings are not.
  errorLine(
      "Your computer does not have a computer name or local hostname set. You must first add one in the "
      "Sharing pane of System Preferences (in the text box at the top) and then run Quillmend again. See the "
      "Quillmend user manual for more details.");
}

void RepairRun::restartQmaster() {
  if (ending_ && !stoppedQmaster_) return;
  enterStage("Starting Qmaster");
  // Microseconds, on purpose. An interrupted repair may come straight from the stop, though, and killtool,
  // which nobody waits for, must not meet what is started now.
  platform::current().clock.sleep(ending_ ? std::chrono::nanoseconds(2s) : 250us);
  line("Attempting to start Qmaster...");
  // All of them, also where an interrupted repair has come to one only: killtool makes no difference.
  startQmaster(versions_);
  line("Relaunching menu bar icon...");
  controller_.qmasterMenuLaunch();
}

void RepairRun::startQmaster(const std::vector<std::string>& versions) {
  if (contains(versions, "3.0")) {
    // Not silent in a silent run either, on purpose: without its startup item this Qmaster cannot work at
    // all.
    controller_.qmasterdStart(Silent::no);
    controller_.qmasterStart();
    controller_.qmasterReset();
    controller_.qmasterStartSharing();
  }
  if (contains(versions, "3.5")) {
    controller_.loadQmasterDaemon();
    controller_.qmasterReset();
    controller_.qmasterStartSharing();
  }
  if (contains(versions, "4.0")) {
    controller_.loadQmasterDaemon();
    controller_.qmaster4Reset();
    controller_.qmaster4StartSharing();
  }
}

void RepairRun::report() {
  if (ending_) {
    reportInterruption();
  } else if (errorsFound_) {
    boldErrorLine(stringWithFormat("Processing complete. %@", kErrorsFound));
  } else {
    boldLine(stringWithFormat("Processing complete. %@", kAllowTime));
  }
  if (controller_.hasGUI()) {
    const std::string text =
        errorsFound_ ? std::string(kErrorsFound) + "\n\nScroll up to see the relevant error messages."
                     : kAllowTime;
    onMainThread([&] {
      // Else the window is about to go, and an alert with it; also where the end was asked for too late to
      // leave anything out.
      if (!controller_.endRequest()) controller_.showAlert(text);
    });
  } else {
    postFinished();
    growl(ending_ ? "Repair failed." : "Repair complete.");
  }
}

void RepairRun::reportInterruption() {
  const auto isStarted = [](const std::string& version) {
    return version == "3.0" || version == "3.5" || version == "4.0";
  };
  std::string outcome = "Qmaster was not touched; run the repair again.";
  if (stoppedQmaster_) {
    outcome =
        std::any_of(versions_.begin(), versions_.end(), isStarted)
            ? "Qmaster was started again; run the repair again to finish it."
            : "Qmaster was stopped and is not started for this version; run the repair again to finish it.";
  }
  const std::string text = stringWithFormat("%@ %@", *ending_, outcome);
  // Said in the log by a silent run too: the services must not change without a word.
  if (isSilent_) TGLog::appendLog("%@", text);
  errorLine(text);
}

void RepairRun::postFinished() {
  std::optional<foundation::PropertyList> userInfo;
  const auto& output = controller_.outputString();
  if (output && !output->empty()) userInfo = foundation::PropertyList::Dictionary{{"output", *output}};
  platform::current().distributedNotifications.post(kFinishedNotification, userInfo);
}

void RepairRun::reopenCompressors() {
  auto& system = platform::current();
  for (const auto& [wasClosed, identifier] :
       {std::pair(closedOldCompressor_, kCompressor3), std::pair(closedCompressor4_, kCompressor4)}) {
    const auto path = wasClosed ? system.applications.pathForIdentifier(identifier) : std::nullopt;
    if (path) system.workspace.openFile(*path);
  }
}

void RepairRun::enterStage(const char* title) {
  if (!controller_.hasGUI()) return;
  onMainThread([&] {
    outlets::ProgressIndicator* const progress = controller_.repairProgress;
    if (progress != nullptr) progress->showStage(title, stages_ == 0 ? 0 : stagesBegun_, stages_);
  });
  if (stages_ > 0) ++stagesBegun_;
}

bool RepairRun::goesOn() {
  if (!ending_) ending_ = controller_.endRequest();
  return !ending_;
}

void RepairRun::line(const std::string& text) {
  if (!isSilent_) onMainThread([&] { controller_.insertText(text); });
}

void RepairRun::boldLine(const std::string& text) {
  if (!isSilent_) onMainThread([&] { controller_.insertBoldText(text); });
}

void RepairRun::errorLine(const std::string& text) {
  if (!isSilent_) onMainThread([&] { controller_.insertErrorText(text); });
}

void RepairRun::boldErrorLine(const std::string& text) {
  if (!isSilent_) onMainThread([&] { controller_.insertBoldErrorText(text); });
}

void RepairRun::growl(const std::string& description) {
  if (!isSilent_ && !controller_.hasGUI()) TGGrowl::postGrowlNotification("Quillmend", description);
}

#include "app/TGAppController.h"
#include "platform/Platform.h"
#include "platform/foundation/Paths.h"
#include "services/TGFileManager.h"
#include "services/TGLocalPaths.h"

using foundation::appendingPathComponent;

namespace {

/// Moves a file of the folder into the user's trash, if the file that is looked for is there. What becomes of
/// it is not examined: the user's own files need no rights, and a repair goes on without.
void recycle(const std::optional<std::string>& folder, const std::string& lookedFor,
             const std::string& recycled) {
  if (!folder || !TGFileManager::fileExistsAtPath(appendingPathComponent(*folder, lookedFor))) return;
  const auto trash = TGLocalPaths::trashDirectory();
  if (!trash) return;
  static_cast<void>(platform::current().workspace.recycle(*folder, *trash, {recycled}));
}

void recycle(const std::optional<std::string>& folder, const std::string& name) {
  recycle(folder, name, name);
}

void confirm(ShowAlert showAlert, const char* title) {
  if (showAlert == ShowAlert::yes) {
    platform::current().alerts.runPanel(title, "Please relaunch Compressor.");
  }
}

}  // namespace

void TGAppController::trashCompressorPrefs(ShowAlert showAlert) {
  const auto folder = TGLocalPaths::prefsDirectory(Domain::user);
  recycle(folder, "com.apple.compressor.Compressor.plist");
  recycle(folder, "com.apple.Compressor.CompressorSharedService.plist");
  recycle(folder, "com.apple.BatchMonitor.plist");
  confirm(showAlert, "Compressor preferences successfully trashed");
}

void TGAppController::trashCompressor4Prefs(ShowAlert showAlert) {
  // The presence of Compressor 4's file makes that of Compressor 3 go to the trash, and its own stays, on
  // purpose.
  recycle(TGLocalPaths::prefsDirectory(Domain::user), "com.apple.Compressor.plist",
          "com.apple.compressor.Compressor.plist");
  confirm(showAlert, "Compressor 4 preferences successfully trashed");
}

void TGAppController::resetWindowLayout(ShowAlert showAlert) {
  auto folder = TGLocalPaths::appSupportDirectory(Domain::user);
  if (folder) folder = appendingPathComponent(*folder, "Compressor/Layouts");
  recycle(folder, "Compressor.saved.moduleLayout");
  confirm(showAlert, "Compressor window layout successfully reset");
}

void TGAppController::menuTrashCompressorPrefs() {
  trashCompressorPrefs(ShowAlert::yes);
}

void TGAppController::menuTrashCompressor4Prefs() {
  trashCompressor4Prefs(ShowAlert::yes);
}

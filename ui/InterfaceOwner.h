#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "ui/Outlets.h"
#include "ui/ShortcutKeyOutlets.h"

namespace outlets {

/// The parts of a loaded window, under their owner's names. None is missing.
struct Connections {
  Window* windowMain;
  TextView* errorText;
  Button* repairButton;
  CheckBox* trashPrefs;
  CheckBox* resetQmasterCheck;
  CheckBox* resetLayoutCheck;
  ImageView* logoImageView;
  MenuItem* menuItemResetOldQmasterConfig;
  MenuItem* prefsAdminPass;
  ProgressIndicator* repairProgress;
};

/// Who a window's controls and menu items work for: the program's side of the interface. Main thread only;
/// nothing here throws.
class InterfaceOwner {
 public:
  virtual ~InterfaceOwner() = default;

  /// The window is loaded and not shown yet; the parts live until applicationWillTerminate() has returned.
  /// May ask for a password, and may ask the application to end. False where the start could not be
  /// completed: the user has been told, the window must not be shown, and the application ends with a
  /// failure.
  [[nodiscard]] virtual bool interfaceDidLoad(const Connections& connections) = 0;

  /// The actions, by the name that a control has in the interface description ("menuStopQmaster"). A control
  /// whose action is not known is of no use and stays disabled. The sender is the control itself where it has
  /// a state, else nullptr.
  [[nodiscard]] virtual bool respondsToAction(const std::string& action) = 0;
  virtual void performAction(const std::string& action, Sender* sender) = 0;

  /// Opens a link's address.
  virtual void openAddress(const std::string& address) = 0;

  /// A repair is under way: between the press of its button and the end of its last step.
  [[nodiscard]] virtual bool isRepairing() = 0;
  /// Lets the step under way of a repair end and leaves the rest out; the application is ended then, at once
  /// without a repair. Nobody is asked for a password any more, unless a repair needs its rights to put back
  /// what it has changed.
  virtual void endRepairAndTerminate() = 0;

  [[nodiscard]] virtual bool shouldTerminateAfterLastWindowClosed() = 0;
  virtual void applicationWillTerminate() = 0;

  /// Where the window was when the application ended last, as setWindowFrame() was told; else "".
  [[nodiscard]] virtual std::string windowFrame() = 0;
  virtual void setWindowFrame(const std::string& frame) = 0;

  /// Who the shortcut-key editor works for, alive as long as the program; nullptr where there is no editor.
  [[nodiscard]] virtual ShortcutKeyOwner* shortcutKeys() = 0;
  /// The Mac's virtual key code (Events.h) of the key with that scan code (linux/input-event-codes.h);
  /// nullopt for a key that no Mac has.
  [[nodiscard]] virtual std::optional<std::uint16_t> virtualKeyCode(std::uint32_t scanCode) = 0;

  /// "2.1"
  [[nodiscard]] virtual std::string version() = 0;
};

}  // namespace outlets

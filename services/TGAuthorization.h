#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/Authorization.h"
#include "platform/foundation/ImmortalSingleton.h"

enum class WithGUI { no, yes };
enum class Async { no, yes };
enum class DeleteOnRootAccount { no, yes };

/// Administrator rights, and programs run with them. One object per process.
///
/// Status values of authExecTask: 0 started (or, for a synchronous call, its output read to the end; always
/// as root), -1 no authorization, -2 the program's path does not exist, otherwise the authorization service's
/// status. A program's own exit status is never seen. A process that runs as root is always authorized and
/// runs tools directly. Messages go to the system console.
///
/// isAuthorized and authRef may be asked from any thread: they tell of rights only once those were granted.
class TGAuthorization : public foundation::ImmortalSingleton<TGAuthorization> {
 public:
  /// The shared object, made on first use; only the call that makes it decides about the GUI.
  static TGAuthorization* sharedController();
  static TGAuthorization* sharedController(WithGUI withGUI);

  [[nodiscard]] platform::AuthorizationRef authRef() const { return authRef_; }
  /// A plain assignment: the reference held before is not given back.
  void setAuthRef(platform::AuthorizationRef reference) { authRef_ = reference; }
  [[nodiscard]] bool hasGUI() const { return hasGUI_; }
  void setHasGUI(bool hasGUI) { hasGUI_ = hasGUI; }

  /// The home of the user that this object was made for; nullopt when root made it.
  [[nodiscard]] const std::optional<std::string>& userDirectory() const { return userDirectory_; }

  /// Rights are held: as root, or with an authorization reference.
  [[nodiscard]] bool isAuthorized() const;

  /// Rights could be asked for: with a GUI, or as root.
  [[nodiscard]] bool canAuthorize() const;

  /// Obtains administrator rights, asking if needed.
  bool authStart();

  /// Obtains administrator rights from a user name and password, without a dialog.
  bool authStartWithUser(const std::optional<std::string>& user, const std::optional<std::string>& password);

  /// Gives the rights back.
  void authEnd();

  /// Runs a program with administrator rights; without waiting unless Async::no is given.
  std::int32_t authExecTask(const std::string& path, const std::vector<std::string>& parameters,
                            Async async = Async::yes);

  /// The file verbs start a system tool and do not wait for it, on purpose: true says that it was started.
  /// Protected folders are refused with a message. So is, for root, a path that somebody else's link may lead
  /// elsewhere: users control the folders on the way to their trash. What a user exchanges after that look
  /// is the platform's: on Linux root's tools are the bundle's, which open the way anew and follow nothing;
  /// elsewhere, and with an administrator's password, they are the system's, which go by the path.
  bool authCopyFile(const std::optional<std::string>& source, const std::optional<std::string>& toPath);
  bool authMoveFile(const std::optional<std::string>& source, const std::optional<std::string>& toPath);
  bool authMoveFolderContents(const std::string& source, const std::string& toPath);
  bool authTrashFile(const std::string& path,
                     DeleteOnRootAccount deleteOnRootAccount = DeleteOnRootAccount::no);
  bool authTrashFolderContents(const std::string& folder,
                               DeleteOnRootAccount deleteOnRootAccount = DeleteOnRootAccount::no);
  bool authRemoveFile(const std::string& path);
  bool authCreateDir(const std::string& path);

 private:
  friend foundation::ImmortalSingleton<TGAuthorization>;
  TGAuthorization() = default;
  ~TGAuthorization() = default;

  TGAuthorization* init();
  TGAuthorization* initWithoutGUI();

  std::int32_t executePrivileged(const std::string& path, const std::vector<std::string>& parameters,
                                 Async async);
  bool startTool(const std::string& path, const std::vector<std::string>& parameters);
  [[nodiscard]] std::optional<std::string> trashDestination(const std::string& path) const;
  [[nodiscard]] bool deletesOnRootAccount(DeleteOnRootAccount deleteOnRootAccount) const;

  std::atomic<platform::AuthorizationRef> authRef_ = nullptr;
  bool hasGUI_ = false;
  std::optional<std::string> userDirectory_;
};

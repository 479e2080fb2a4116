#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "helpers/TrashCan.h"

namespace helpers {

/// Empties a spool folder in a time that does not depend on how much is in it.
///
///   parent/qmaster             full            full            empty, new       empty, new
///   parent/.qmaster.emptying           empty, new      full
///   trash/qmaster 2024-...                                              ->      full
///                                    made          exchanged           trashed
///
/// A new folder with the spool folder's owner, mode, access control list and extended attributes is made
/// beside it, the two change names in one step, and the full one goes to the trash as one folder that can be
/// put back whole. A writer that goes by the path finds a spool folder at every moment; one that has the old
/// folder open goes on in that. Whoever is killed leaves the folder named ".NAME.emptying" behind, empty or
/// full: the next run brings it to its end first. Both folders are locked (flock(2)) meanwhile, so that a
/// second run waits for the first; a lock that somebody else holds delays the work by at most `lockPatience`.
///
/// Where the exchange is not possible (the folder is a mount point, or the file system cannot) the entries
/// are moved one after the other into one dated folder in the trash. At the top of a volume ".Trashes" and
/// "lost+found" belong to the volume and stay. An empty folder is left alone. Where no trash can be had, or
/// the move fails, everything is left, or put back, where it was.
class SpoolFolder {
 public:
  /// The moments between which a run can be killed, in their order.
  enum class Step { located, made, prepared, exchanged, trashed };
  using OnStep = std::function<void(Step)>;
  enum class Exchange { allow, avoid };

  SpoolFolder(const Surroundings& surroundings, Report& report)
      : surroundings_(surroundings), report_(report) {}

  void onStep(OnStep onStep) { onStep_ = std::move(onStep); }
  void setExchange(Exchange exchange) { exchange_ = exchange; }
  void setLockPatience(std::chrono::milliseconds patience) { lockPatience_ = patience; }

  /// A path that does not exist is done already.
  [[nodiscard]] ExitStatus empty(const std::string& path);

 private:
  enum class Outcome { done, again, impossible };

  [[nodiscard]] Outcome attempt(const PathEntry& spool);
  [[nodiscard]] Outcome finishInterrupted(const PathEntry& spool);
  [[nodiscard]] Outcome exchange(const PathEntry& spool, TrashCan& trash);
  [[nodiscard]] Outcome exchangeWith(const PathEntry& spool, int fresh, TrashCan& trash);
  [[nodiscard]] Outcome trashExchanged(const PathEntry& spool, TrashCan& trash);
  void putBack(const PathEntry& spool);
  void moveEntries(const PathEntry& spool);
  void step(Step reached) const;
  [[nodiscard]] bool patienceIsOver() const;

  const Surroundings& surroundings_;
  Report& report_;
  OnStep onStep_;
  Exchange exchange_ = Exchange::allow;
  std::chrono::milliseconds lockPatience_{2000};
  std::chrono::steady_clock::time_point start_;
};

/// The names in a folder that are its contents: at the top of a volume without what belongs to the volume.
[[nodiscard]] foundation::Result<platform::NameList> contentsOf(const PathEntry& folder);

}  // namespace helpers

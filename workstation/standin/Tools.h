#pragma once

#include <string>
#include <vector>

/// The tools of the vendor's and of the Mac's, as far as a repair calls them. Each answers its exit status
/// and keeps what it changed in the workstation's state (Layout.h). An argument vector that a tool does not
/// know gets its usage line on standard error and a status other than 0.
namespace workstation::standin {

using Arguments = std::vector<std::string>;

/// qmasterprefs: -resetCluster cancelJobs, -reset, -startSharing, -stopSharing, -restart. The one of
/// /usr/sbin keeps its values under "qmaster.", the one inside an application under "qmaster4."; the daemons
/// that it starts and ends are those in its own folder.
int qmasterPreferences(const Arguments& arguments);

/// The startup item: start, stop, restart of /usr/sbin/qmasterd. A ".disabled" file beside it switches it
/// off.
int startupItem(const Arguments& arguments);

/// launchctl: load FILE, unload FILE, remove LABEL, list. Loading a job again that is loaded and not running
/// starts it, as launchd does with a job that it keeps alive. Jobs are root's: nobody else can change them.
int launchControl(const Arguments& arguments);

/// scutil: --get NAME and --set NAME TEXT for ComputerName, LocalHostName and HostName. A name that is not
/// set is reported on standard output with status 1.
int systemConfiguration(const Arguments& arguments);

/// TGShortcutKeyManager: -setup.
int setUpShortcutKeys(const Arguments& arguments);

/// open: [-a] APPLICATION, a bundle or an executable, is really started; a document or an address is only
/// recorded.
int openItem(const Arguments& arguments);

}  // namespace workstation::standin

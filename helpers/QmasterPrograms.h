#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace helpers {

/// What a program is to Qmaster, in the order in which killtool asks them to end: those who use the service
/// first, the daemon that starts the others last.
enum class QmasterRole {
  client,      ///< applications and the status menu
  controller,  ///< job and service controllers, transcoders, and other programs of Qmaster's own
  queue,       ///< qmasterqd
  daemon       ///< qmasterd
};

/// Which program an executable is, by its whole path; nothing for every program that is not Qmaster's:
/// - /usr/sbin/qmasterd, qmasterqd and qmasterca;
/// - everything inside /Library/Application Support/Apple Qmaster, and inside
///   /Library/Frameworks/{Compressor,Qmaster,MediaServerAPI}.framework;
/// - everything inside "PreferencePanes/Apple Qmaster.prefPane" of a Library folder (the status menu);
/// - everything inside Compressor.app, Batch Monitor.app, Apple Qmaster.app and Apple Qadministrator.app in a
///   folder named Applications, or one level below it (Utilities, Final Cut Studio), wherever that lies;
/// - everything inside Compressor.app/Contents/PlugIns/Compressor/CompressorKit.bundle, wherever that lies.
/// Never a program named qmasterprefs: it ends by itself, and a repair has it at work at that very time.
/// A daemon inside a bundle or framework has the role that its name tells.
[[nodiscard]] std::optional<QmasterRole> qmasterRole(std::string_view executable);

}  // namespace helpers

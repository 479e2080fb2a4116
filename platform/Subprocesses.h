#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace platform {

/// Where a standard stream of a child leads.
enum class Stream { inherited, nullDevice, pipe };

/// What to run, and its streams.
struct SubprocessOptions {
  std::string launchPath;
  std::vector<std::string> arguments = {};  ///< without the program's name, which is the launch path
  Stream standardInput = Stream::inherited;
  Stream standardOutput = Stream::inherited;
  Stream standardError = Stream::inherited;
};

/// One child process. It starts with every descriptor closed that is not one of its three streams, with
/// signal handling reset, in a session of its own (so that an interrupt typed at the terminal does not hit
/// it), and with the environment of this process. It leaves no zombie, waited for or not, and may outlive
/// this object and this program. isRunning, terminate and launchPath may be called from any thread.
class Subprocess {
 public:
  virtual ~Subprocess() = default;

  [[nodiscard]] virtual const std::string& launchPath() const = 0;

  /// Starts it. Throws foundation::Exception (NSInvalidArgumentException) when it cannot be started, with the
  /// path and the system's reason. REQUIRES not launched before.
  virtual void launch() = 0;

  [[nodiscard]] virtual bool isRunning() = 0;

  /// Blocks until the child has ended; on the main thread, main-thread work is served meanwhile.
  virtual void waitUntilExit() = 0;

  /// The exit status, or the number of the signal that ended it. REQUIRES ended.
  [[nodiscard]] virtual int terminationStatus() = 0;

  /// Asks it to end: SIGTERM. Nothing happens when it has ended.
  virtual void terminate() = 0;

  /// What the pipe of standard output (error) holds, at most 64 KiB at a time; blocks until there is
  /// something, on the main thread serving main-thread work meanwhile. Empty means the end. REQUIRES
  /// Stream::pipe for that stream.
  [[nodiscard]] virtual std::string availableOutput() = 0;
  [[nodiscard]] virtual std::string availableError() = 0;

  /// The same, added to a text, and as much at a time as is handy: how many bytes, 0 at the end. For output
  /// of which there may be much.
  [[nodiscard]] virtual std::size_t appendAvailableOutput(std::string& text) {
    return append(availableOutput(), text);
  }
  [[nodiscard]] virtual std::size_t appendAvailableError(std::string& text) {
    return append(availableError(), text);
  }

  /// Closes the reading end; nothing happens when it is closed.
  virtual void closeOutput() = 0;
  virtual void closeError() = 0;

 private:
  static std::size_t append(const std::string& piece, std::string& text) {
    text += piece;
    return piece.size();
  }
};

/// Makes children. A tool that is called by a Mac path which this system lacks (/usr/sbin/scutil,
/// /usr/bin/open, /usr/sbin/chown) is looked for among the backend's own equivalents.
class Subprocesses {
 public:
  virtual ~Subprocesses() = default;

  /// A child that is not started yet.
  [[nodiscard]] virtual std::shared_ptr<Subprocess> create(SubprocessOptions options) = 0;

  /// There is a regular file at the path (or an equivalent of the tool) that this process may execute; a
  /// folder with search permission counts too, as it does for the Mac's isExecutableFileAtPath.
  [[nodiscard]] virtual bool isExecutableFile(const std::string& path) = 0;
};

}  // namespace platform

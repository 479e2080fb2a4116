#pragma once

#include <optional>
#include <string>

/// Questions about files. Never throws, never logs; may be called from any thread.
class TGFileManager {
 public:
  TGFileManager() = delete;

  /// The path exists, symbolic links followed. No path is no file.
  [[nodiscard]] static bool fileExistsAtPath(const std::optional<std::string>& path);

  /// The path exists and is a directory.
  [[nodiscard]] static bool isDirectoryAtPath(const std::optional<std::string>& path);

  /// The desktop presents the path as a package: a directory shown as one file.
  [[nodiscard]] static bool isPackageAtPath(const std::optional<std::string>& path);
};

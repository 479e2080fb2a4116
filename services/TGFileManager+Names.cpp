#include <algorithm>

#include "platform/foundation/Paths.h"
#include "platform/foundation/Text.h"
#include "services/TGFileManager.h"

std::string TGFileManager::uniqueFilename(const std::string& path) {
  const std::string stem = foundation::deletingPathExtension(path);
  const std::string extension = foundation::pathExtension(path);
  std::string unique = path;
  for (int number = 2; fileExistsAtPath(unique); ++number) {
    unique = foundation::stringWithFormat("%@ %i", stem, number);
    if (!extension.empty()) unique += "." + extension;
  }
  return unique;
}

std::string TGFileManager::validateFilename(const std::string& name) {
  if (name == ".") return "";
  // One point only, before the blanks go, on purpose: a name that still begins with one is what was asked
  // for.
  std::string valid = foundation::trimmed(name.starts_with('.') ? name.substr(1) : name);
  valid.erase(std::remove_if(valid.begin(), valid.end(), [](char c) { return c == '/' || c == ':'; }),
              valid.end());
  return valid;
}

std::string TGFileManager::formatFileSize(double bytes) {
  constexpr double unit = 1.0 / 1024;
  if (bytes < 1024) return foundation::stringWithFormat("%0.0f B", bytes);
  if (bytes < 1048576) return foundation::stringWithFormat("%0.2f KB", bytes * unit);
  if (bytes < 1073741824) return foundation::stringWithFormat("%0.2f MB", bytes * unit * unit);
  // What is no number is none of the above.
  return foundation::stringWithFormat("%0.2f GB", bytes * unit * unit * unit);
}

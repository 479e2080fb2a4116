#include "platform/foundation/Paths.h"

namespace foundation {
namespace {

std::string_view withoutTrailingSlashes(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  return path;
}

/// Where the extension's point stands in the path, or npos.
std::size_t extensionPoint(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  const std::size_t nameStart = slash == std::string_view::npos ? 0 : slash + 1;
  const std::size_t point = path.rfind('.');
  if (point == std::string_view::npos || point <= nameStart || point + 1 == path.size()) {
    return std::string_view::npos;
  }
  return point;
}

}  // namespace

std::string appendingPathComponent(std::string_view path, std::string_view component) {
  if (path.empty()) return std::string(component);
  std::string joined(withoutTrailingSlashes(path));
  while (!component.empty() && component.front() == '/') component.remove_prefix(1);
  if (component.empty()) return joined;
  if (joined.back() != '/') joined += '/';
  joined += withoutTrailingSlashes(component);
  return joined;
}

std::vector<std::string> pathComponents(std::string_view path) {
  std::vector<std::string> components;
  if (!path.empty() && path.front() == '/') components.emplace_back("/");
  std::size_t start = 0;
  while (start < path.size()) {
    std::size_t end = path.find('/', start);
    if (end == std::string_view::npos) end = path.size();
    if (end > start) components.emplace_back(path.substr(start, end - start));
    start = end + 1;
  }
  return components;
}

std::string lastPathComponent(std::string_view path) {
  path = withoutTrailingSlashes(path);
  if (path == "/") return "/";
  return std::string(path.substr(path.rfind('/') + 1));
}

std::string deletingLastPathComponent(std::string_view path) {
  path = withoutTrailingSlashes(path);
  const std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return "";
  if (slash == 0) return "/";
  return std::string(withoutTrailingSlashes(path.substr(0, slash)));
}

bool isItemName(std::string_view name) {
  constexpr std::string_view kNeverInNames("/\0", 2);
  return !name.empty() && name != "." && name != ".." &&
         name.find_first_of(kNeverInNames) == std::string_view::npos;
}

std::string pathExtension(std::string_view path) {
  path = withoutTrailingSlashes(path);
  const std::size_t point = extensionPoint(path);
  return point == std::string_view::npos ? "" : std::string(path.substr(point + 1));
}

std::string deletingPathExtension(std::string_view path) {
  path = withoutTrailingSlashes(path);
  return std::string(path.substr(0, extensionPoint(path)));
}

}  // namespace foundation

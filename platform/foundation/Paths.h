#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Paths are POSIX paths held byte for byte: nothing here looks at the disk, resolves links or "..", folds
/// case, or asks that a name be valid UTF-8.
namespace foundation {

/// Joins with exactly one slash: ("/a", "b"), ("/a/", "b") and ("/a", "/b") all give "/a/b". An empty
/// component gives the path without trailing slashes; an empty path gives the component as it is.
[[nodiscard]] std::string appendingPathComponent(std::string_view path, std::string_view component);

/// The components of a path: an absolute path begins with the component "/"; empty components are left out.
[[nodiscard]] std::vector<std::string> pathComponents(std::string_view path);

/// The last component: "/a/b.txt" and "/a/b.txt/" give "b.txt"; "/" gives "/".
[[nodiscard]] std::string lastPathComponent(std::string_view path);

/// The path without its last component: "/a/b" gives "/a", "/a" gives "/", "a" gives "".
[[nodiscard]] std::string deletingLastPathComponent(std::string_view path);

/// Whether something in a folder can be called that: one component, neither "." nor "..", without a zero
/// byte.
[[nodiscard]] bool isItemName(std::string_view name);

/// What follows the last point of the last component: "/a/b.tar.gz" gives "gz"; a leading point starts no
/// extension (".hidden" gives ""), nor does one at the end ("b." gives "").
[[nodiscard]] std::string pathExtension(std::string_view path);

/// The path without that extension and its point, and without a trailing slash.
[[nodiscard]] std::string deletingPathExtension(std::string_view path);

}  // namespace foundation

#include "helpers/TrashName.h"
#include "platform/fakes/FakePlatform.h"
#include "platform/foundation/Paths.h"
#include "platform/foundation/Text.h"
#include "services/TGFileManager.h"
#include "services/TGLocalPaths.h"
#include "tests/fuzz/Input.h"
#include "tests/fuzz/Targets.h"

namespace fuzz {
namespace {

constexpr std::size_t kLongestName = 255;

fakes::FakePlatform& fake() {
  static fakes::FakePlatform platform;
  return platform;
}

void takeApart(const std::string& path) {
  const std::string last = foundation::lastPathComponent(path);
  require(last == "/" || last.find('/') == std::string::npos, "a component has no slash in it");
  const auto components = foundation::pathComponents(path);
  for (std::size_t at = 0; at < components.size(); ++at) {
    const bool isRoot = at == 0 && components[at] == "/";
    require(isRoot || (!components[at].empty() && components[at].find('/') == std::string::npos),
            "nor has any other");
  }
  require(components.empty() || components.back() == last, "the last is the last");
  const std::string extension = foundation::pathExtension(path);
  const std::string stem = foundation::deletingPathExtension(path);
  require(extension.find('.') == std::string::npos, "an extension has no point in it");
  const std::string whole = extension.empty() ? stem : stem + "." + extension;
  require(path.starts_with(whole), "a path is what is before its extension, a point, and that");
  require(foundation::lastPathComponent(whole) == last, "and nothing but slashes");
}

void join(const std::string& path, const std::string& component) {
  const std::string joined = foundation::appendingPathComponent(path, component);
  const auto last = foundation::pathComponents(component);
  const bool isNothing = last.empty() || last.back() == "/";
  require(path.empty() || isNothing || foundation::lastPathComponent(joined) == last.back(),
          "what is appended is the last");
}

void name(const std::string& text) {
  const std::string valid = TGFileManager::validateFilename(text);
  require(valid.find_first_of("/:") == std::string::npos, "a valid name is one component");
  static_cast<void>(TGFileManager::uniqueFilename("/nothing here" + valid));
}

void nameForTrash(const std::string& path) {
  const std::string last = foundation::lastPathComponent(path);
  if (last.empty() || last == "/" || last.size() > kLongestName) return;
  for (const auto& names : {helpers::TrashName::ofItem(last, fake().clock.start),
                            helpers::TrashName::ofContents(last, fake().clock.start)}) {
    for (const unsigned attempt : {0U, 1U, 12345U}) {
      const std::string candidate = names.candidate(attempt, kLongestName);
      require(!candidate.empty() && candidate.size() <= kLongestName, "a name can be made");
      require(candidate.find('/') == std::string::npos, "a name for the trash stays in it");
      require(!foundation::isUtf8(last) || foundation::isUtf8(candidate), "a name that is text stays text");
    }
    require(names.candidate(1, kLongestName) != names.candidate(2, kLongestName), "each attempt has its own");
  }
}

void protect(const std::string& path) {
  const bool exactly = TGLocalPaths::isPathSystemDirectory(path, ExactMatch::yes);
  const bool isProtected = TGLocalPaths::isPathSystemDirectory(path);
  require(isProtected || !exactly, "what is protected as it stands is protected");
  require(!exactly || path == "/" || foundation::characterCount(path) >= 3, "short paths are not");
  for (const char* const beginning : {"/usr", "/var", "/private/var", "/System"}) {
    const bool begins = path.starts_with(beginning) && !path.ends_with('/');
    require(!begins || isProtected, "all that begins so is protected");
  }
}

}  // namespace

void takePathsApart(std::string_view input) {
  static_cast<void>(fake());
  const auto parts = pieces(input);
  const std::string& path = parts.front();
  takeApart(path);
  join(path, parts.size() > 1 ? parts[1] : "");
  name(path);
  nameForTrash(path);
  protect(parts.size() > 2 ? parts[2] : path);
}

}  // namespace fuzz

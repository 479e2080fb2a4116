#include "ui/window/askpass/EarlierAnswer.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <system_error>

#include "platform/linux/AskpassNotes.h"

namespace window {
namespace {

/// As memfd_create(2) says where such a file can be seen. A file that has lost its name leads nowhere of the
/// kind.
bool isNamelessMemory(int descriptor) {
  struct stat status {};
  if (::fstat(descriptor, &status) != 0 || status.st_nlink != 0) return false;
  std::error_code failed;
  const auto shown =
      std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), failed).string();
  return !failed && shown.starts_with("/memfd:");
}

/// FNV-1a. Whoever reads sudo's messages looks for words in them, and a prompt may have any.
std::uint64_t hashOf(std::string_view text) {
  constexpr std::uint64_t kBasis = 14695981039346656037U;
  constexpr std::uint64_t kPrime = 1099511628211U;
  std::uint64_t hash = kBasis;
  for (const char letter : text) hash = (hash ^ static_cast<unsigned char>(letter)) * kPrime;
  return hash;
}

std::string lineFor(std::string_view prompt) {
  return std::string(platform::kAskpassAnswered) + std::to_string(hashOf(prompt)) + "\n";
}

/// sudo's own messages are there too; they are short.
std::string contentOf(int file) {
  constexpr std::size_t kMost = 64UL << 10;
  std::string text(kMost, '\0');
  const ssize_t count = ::pread(file, text.data(), text.size(), 0);
  text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
  return text;
}

void note(int standardError, std::string_view line) {
  if (isNamelessMemory(standardError)) static_cast<void>(!::write(standardError, line.data(), line.size()));
}

}  // namespace

void noteQuestion(int standardError) {
  note(standardError, std::string(platform::kAskpassAsks) + "\n");
}

void noteAnswer(int standardError, std::string_view prompt) {
  // Where it cannot be written the next dialog looks like the first one.
  note(standardError, lineFor(prompt));
}

bool wasAnswered(int standardError, std::string_view prompt) {
  return isNamelessMemory(standardError) &&
         contentOf(standardError).find(lineFor(prompt)) != std::string::npos;
}

}  // namespace window

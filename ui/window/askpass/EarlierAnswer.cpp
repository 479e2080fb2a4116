#include "ui/window/askpass/EarlierAnswer.h"

#include <sys/stat.h>
#include <unistd.h>

#include <string>

namespace window {
namespace {

bool isNamelessFile(int descriptor) {
  struct stat status {};
  return ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) && status.st_nlink == 0;
}

std::string lineFor(std::string_view prompt) {
  return "askpass: answered " + std::string(prompt) + "\n";
}

/// sudo's own messages are there too; they are short.
std::string contentOf(int file) {
  constexpr std::size_t kMost = 64UL << 10;
  std::string text(kMost, '\0');
  const ssize_t count = ::pread(file, text.data(), text.size(), 0);
  text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
  return text;
}

}  // namespace

void noteAnswer(int standardError, std::string_view prompt) {
  if (!isNamelessFile(standardError)) return;
  const std::string line = lineFor(prompt);
  // Where it cannot be written the next dialog looks like the first one.
  static_cast<void>(!::write(standardError, line.data(), line.size()));
}

bool wasAnswered(int standardError, std::string_view prompt) {
  return isNamelessFile(standardError) && contentOf(standardError).find(lineFor(prompt)) != std::string::npos;
}

}  // namespace window

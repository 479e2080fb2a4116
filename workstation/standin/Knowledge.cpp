#include "workstation/standin/Knowledge.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>

#include "workstation/Layout.h"
#include "workstation/RecordLine.h"

namespace workstation::standin {
namespace {

std::string valueFile(std::string_view key) {
  return std::string(valuesFolder) + '/' + std::string(key);
}

std::string readExecutablePath() {
  std::array<char, PATH_MAX> path{};
  const auto length = ::readlink("/proc/self/exe", path.data(), path.size());
  return length > 0 ? std::string(path.data(), static_cast<std::size_t>(length)) : std::string();
}

bool writeFile(const std::string& file, std::string_view text) {
  const int descriptor = ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (descriptor < 0) return false;
  const auto written = ::write(descriptor, text.data(), text.size());
  ::fchmod(descriptor, 0666);
  ::close(descriptor);
  return written == static_cast<ssize_t>(text.size());
}

}  // namespace

const std::string& executablePath() {
  static const std::string path = readExecutablePath();
  return path;
}

void record(std::string kind, std::vector<std::string> arguments) {
  appendRecord(std::string(callsFile), recordNow(std::move(kind), executablePath(), std::move(arguments)));
}

std::optional<std::string> value(std::string_view key) {
  auto text = contentsOf(valueFile(key));
  if (text && text->ends_with('\n')) text->pop_back();
  return text;
}

bool setValue(std::string_view key, std::string_view text) {
  const auto file = valueFile(key);
  const auto fresh = file + '.' + std::to_string(::getpid());
  return writeFile(fresh, std::string(text) + '\n') && ::rename(fresh.c_str(), file.c_str()) == 0;
}

bool removeValue(std::string_view key) {
  return ::unlink(valueFile(key).c_str()) == 0;
}

std::string manner() {
  for (const auto& line : split(contentsOf(std::string(mannersFile)).value_or(""), '\n')) {
    const auto fields = split(line, '\t');
    if (fields.size() == 2 && fields[0] == executablePath()) return fields[1];
  }
  return {};
}

}  // namespace workstation::standin

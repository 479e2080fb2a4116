#include "workstation/RecordLine.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <charconv>

namespace workstation {
namespace {

constexpr std::size_t fixedFields = 7;

std::chrono::nanoseconds now(clockid_t clock) {
  timespec time{};
  ::clock_gettime(clock, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

template <typename Number>
bool parse(const std::string& text, Number& number) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc{} && stop == end;
}

bool parse(const std::string& text, std::chrono::nanoseconds& time) {
  std::chrono::nanoseconds::rep count = 0;
  if (!parse(text, count)) return false;
  time = std::chrono::nanoseconds(count);
  return true;
}

}  // namespace

RecordLine recordNow(std::string kind, std::string path, std::vector<std::string> arguments) {
  return {.kind = std::move(kind),
          .monotonic = now(CLOCK_MONOTONIC),
          .realtime = now(CLOCK_REALTIME),
          .user = ::getuid(),
          .effectiveUser = ::geteuid(),
          .process = ::getpid(),
          .path = std::move(path),
          .arguments = std::move(arguments)};
}

std::string encoded(const RecordLine& line) {
  std::string text = escaped(line.kind);
  for (const std::int64_t number :
       {std::int64_t{line.monotonic.count()}, std::int64_t{line.realtime.count()}, std::int64_t{line.user},
        std::int64_t{line.effectiveUser}, std::int64_t{line.process}}) {
    text += '\t' + std::to_string(number);
  }
  text += '\t' + escaped(line.path);
  for (const auto& argument : line.arguments) text += '\t' + escaped(argument);
  return text + '\n';
}

std::optional<RecordLine> decoded(std::string_view text) {
  const auto fields = split(text, '\t');
  if (fields.size() < fixedFields) return std::nullopt;
  RecordLine line{};
  line.kind = unescaped(fields[0]);
  if (!parse(fields[1], line.monotonic) || !parse(fields[2], line.realtime) || !parse(fields[3], line.user) ||
      !parse(fields[4], line.effectiveUser) || !parse(fields[5], line.process)) {
    return std::nullopt;
  }
  line.path = unescaped(fields[6]);
  for (auto i = fixedFields; i < fields.size(); ++i) line.arguments.push_back(unescaped(fields[i]));
  return line;
}

bool appendRecord(const std::string& file, const RecordLine& line) {
  const int descriptor = ::open(file.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
  if (descriptor < 0) return false;
  ::fchmod(descriptor, 0666);  // whoever runs first makes the file, and the others write to it too
  const auto text = encoded(line);
  const auto written = ::write(descriptor, text.data(), text.size());
  ::close(descriptor);
  return written == static_cast<ssize_t>(text.size());
}

std::string escaped(std::string_view field) {
  std::string text;
  for (const char character : field) {
    switch (character) {
      case '\\':
        text += "\\\\";
        break;
      case '\t':
        text += "\\t";
        break;
      case '\n':
        text += "\\n";
        break;
      default:
        text += character;
    }
  }
  return text;
}

std::string unescaped(std::string_view field) {
  std::string text;
  for (std::size_t i = 0; i < field.size(); ++i) {
    if (field[i] != '\\' || i + 1 == field.size()) {
      text += field[i];
      continue;
    }
    const char code = field[++i];
    text += code == 't' ? '\t' : code == 'n' ? '\n' : code;
  }
  return text;
}

std::vector<std::string> split(std::string_view text, char separator) {
  std::vector<std::string> parts;
  while (true) {
    const auto end = text.find(separator);
    parts.emplace_back(text.substr(0, end));
    if (end == std::string_view::npos) return parts;
    text.remove_prefix(end + 1);
  }
}

std::optional<std::string> contentsOf(const std::string& file) {
  const int descriptor = ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) return std::nullopt;
  std::string text;
  std::array<char, 4096> buffer{};
  ssize_t count = 0;
  while ((count = ::read(descriptor, buffer.data(), buffer.size())) > 0) {
    text.append(buffer.data(), static_cast<std::size_t>(count));
  }
  ::close(descriptor);
  if (count < 0) return std::nullopt;
  return text;
}

}  // namespace workstation

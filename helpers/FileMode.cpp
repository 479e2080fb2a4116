#include "helpers/FileMode.h"

#include <sys/stat.h>

namespace helpers {
namespace {

constexpr mode_t kSetIds = S_ISUID | S_ISGID;
constexpr mode_t kAllBits = 07777;
constexpr mode_t kAnyExecute = S_IXUSR | S_IXGRP | S_IXOTH;
constexpr mode_t kMask = S_IWGRP | S_IWOTH;

mode_t affectedBy(char who) {
  switch (who) {
    case 'u':
      return S_ISUID | S_IRWXU;
    case 'g':
      return S_ISGID | S_IRWXG;
    case 'o':
      return S_ISVTX | S_IRWXO;
    case 'a':
      return kAllBits;
    default:
      return 0;
  }
}

/// For all three classes at once: who cuts it down.
mode_t permissionBits(char letter) {
  switch (letter) {
    case 'r':
      return S_IRUSR | S_IRGRP | S_IROTH;
    case 'w':
      return S_IWUSR | S_IWGRP | S_IWOTH;
    case 'x':
      return kAnyExecute;
    case 's':
      return kSetIds;
    case 't':
      return S_ISVTX;
    default:
      return 0;
  }
}

bool isAction(char letter) {
  return letter == '+' || letter == '-' || letter == '=';
}

}  // namespace

std::optional<FileMode> FileMode::parse(std::string_view text) {
  if (!text.empty() && text.front() >= '0' && text.front() <= '9') return parseOctal(text);
  FileMode mode;
  while (true) {
    const std::size_t comma = text.find(',');
    if (!parseClause(text.substr(0, comma), mode)) return std::nullopt;
    if (comma == std::string_view::npos) return mode;
    text.remove_prefix(comma + 1);
  }
}

std::optional<FileMode> FileMode::parseOctal(std::string_view text) {
  if (text.size() > 4 || text.find_first_not_of("01234567") != std::string_view::npos) return std::nullopt;
  mode_t bits = 0;
  for (const char digit : text) bits = bits * 8 + static_cast<mode_t>(digit - '0');
  FileMode mode;
  mode.changes_.push_back({'=', kAllBits, bits, static_cast<mode_t>((bits & kSetIds) | (kAllBits & ~kSetIds)),
                           false, Copy::none});
  return mode;
}

bool FileMode::parseClause(std::string_view clause, FileMode& mode) {
  mode_t affected = 0;
  for (; !clause.empty() && affectedBy(clause.front()) != 0; clause.remove_prefix(1)) {
    affected |= affectedBy(clause.front());
  }
  if (clause.empty()) return false;
  while (!clause.empty()) {
    if (!isAction(clause.front())) return false;
    Change change;
    change.action = clause.front();
    change.affected = affected;
    clause.remove_prefix(1);
    if (!parsePermissions(clause, change)) return false;
    change.mentioned = change.bits & (affected == 0 ? kAllBits : affected);
    mode.changes_.push_back(change);
  }
  return true;
}

bool FileMode::parsePermissions(std::string_view& clause, Change& change) {
  const char first = clause.empty() ? '\0' : clause.front();
  if (first == 'u' || first == 'g' || first == 'o') {
    change.copy = first == 'u' ? Copy::user : first == 'g' ? Copy::group : Copy::others;
    clause.remove_prefix(1);
    return clause.empty() || isAction(clause.front());
  }
  for (; !clause.empty() && !isAction(clause.front()); clause.remove_prefix(1)) {
    const char letter = clause.front();
    if (letter != 'X' && permissionBits(letter) == 0) return false;
    change.bits |= permissionBits(letter);
    change.conditionalExecute = change.conditionalExecute || letter == 'X';
  }
  return true;
}

mode_t FileMode::requestedBits(const Change& change, mode_t current, bool isFolder) {
  if (change.copy == Copy::none) {
    const bool execute = change.conditionalExecute && (isFolder || (current & kAnyExecute) != 0);
    return execute ? change.bits | kAnyExecute : change.bits;
  }
  const unsigned shift = change.copy == Copy::user ? 6 : change.copy == Copy::group ? 3 : 0;
  const mode_t copied = (current >> shift) & 7U;
  return static_cast<mode_t>((copied << 6U) | (copied << 3U) | copied);
}

mode_t FileMode::applyChange(const Change& change, mode_t current, bool isFolder) {
  const mode_t kept = isFolder ? kSetIds & ~change.mentioned : 0;
  const mode_t scope = change.affected == 0 ? kAllBits & ~kMask : change.affected;
  const mode_t bits = requestedBits(change, current, isFolder) & scope & ~kept;
  if (change.action == '+') return current | bits;
  if (change.action == '-') return current & ~bits;
  const mode_t untouched = change.affected == 0 ? 0 : kAllBits & ~change.affected;
  return (current & (untouched | kept)) | bits;
}

mode_t FileMode::appliedTo(mode_t current, bool isFolder) const {
  mode_t mode = current & kAllBits;
  for (const Change& change : changes_) mode = applyChange(change, mode, isFolder);
  return mode;
}

}  // namespace helpers

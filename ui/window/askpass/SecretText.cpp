#include "ui/window/askpass/SecretText.h"

#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <new>

namespace window {
namespace {

constexpr std::size_t kMapped = 4096;
static_assert(SecretText::kCapacity < kMapped, "the line break has room too");

bool isContinuation(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

bool isBetween(char32_t letter, char32_t first, char32_t last) {
  return letter >= first && letter <= last;
}

}  // namespace

SecretText::SecretText() {
  void* const memory = ::mmap(nullptr, kMapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::bad_alloc();
  isLocked_ = ::mlock(memory, kMapped) == 0;
  ::madvise(memory, kMapped, MADV_DONTDUMP);
  ::madvise(memory, kMapped, MADV_DONTFORK);
  memory_ = static_cast<char*>(memory);
}

SecretText::~SecretText() {
  clear();
  ::munmap(memory_, kMapped);
}

bool SecretText::append(std::string_view text) {
  if (text.size() > kCapacity - size_) return false;
  if (text.find_first_of(std::string_view("\n\r\0", 3)) != std::string_view::npos) return false;
  std::copy(text.begin(), text.end(), memory_ + size_);
  size_ += text.size();
  return true;
}

bool SecretText::append(std::u16string_view text) {
  const std::size_t before = size_;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const bool isPair = at + 1 < text.size() && isBetween(text[at], 0xD800, 0xDBFF) &&
                        isBetween(text[at + 1], 0xDC00, 0xDFFF);
    const char32_t letter =
        isPair ? 0x10000U + ((text[at] - 0xD800U) << 10U) + (text[at + 1] - 0xDC00U) : text[at];
    if (isPair) ++at;
    if (appendLetter(letter)) continue;
    ::explicit_bzero(memory_ + before, size_ - before);
    size_ = before;
    return false;
  }
  return true;
}

/// In UTF-8.
bool SecretText::appendLetter(char32_t letter) {
  const std::size_t length = letter < 0x80 ? 1 : letter < 0x800 ? 2 : letter < 0x10000 ? 3 : 4;
  if (length > kCapacity - size_ || isBetween(letter, 0xD800, 0xDFFF)) return false;
  if (letter == U'\n' || letter == U'\r' || letter == 0) return false;
  for (std::size_t left = length; left-- > 1; letter >>= 6U) {
    memory_[size_ + left] = static_cast<char>(0x80U | (letter & 0x3FU));
  }
  constexpr unsigned char kMarks[] = {0x00, 0xC0, 0xE0, 0xF0};
  memory_[size_] = static_cast<char>(kMarks[length - 1] | letter);
  size_ += length;
  return true;
}

void SecretText::removeLast() {
  while (size_ > 0) {
    const bool isStart = !isContinuation(memory_[--size_]);
    ::explicit_bzero(memory_ + size_, 1);
    if (isStart) return;
  }
}

void SecretText::clear() {
  ::explicit_bzero(memory_, kMapped);
  size_ = 0;
}

std::size_t SecretText::length() const {
  const auto text = bytes();
  return text.size() - static_cast<std::size_t>(std::count_if(text.begin(), text.end(), isContinuation));
}

bool SecretText::writeLine(int descriptor) {
  memory_[size_] = '\n';
  const std::size_t wanted = size_ + 1;
  std::size_t done = 0;
  while (done < wanted) {
    const ssize_t count = ::write(descriptor, memory_ + done, wanted - done);
    if (count < 0 && errno != EINTR) return false;
    done += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
  }
  return true;
}

void overwriteFreedMemory(char** arguments) {
  // The caches of threads are left out of the overwriting, and so they are not used.
  constexpr const char* kTunables = "glibc.malloc.perturb=165:glibc.malloc.tcache_count=0";
  const char* const now = std::getenv("GLIBC_TUNABLES");  // NOLINT(concurrency-mt-unsafe): the only thread
  if (now != nullptr && std::string_view(now) == kTunables) return;
  ::setenv("GLIBC_TUNABLES", kTunables, 1);  // NOLINT(concurrency-mt-unsafe)
  std::error_code failure;
  const auto program = std::filesystem::read_symlink("/proc/self/exe", failure);
  if (!failure) ::execv(program.c_str(), arguments);
}

void refuseToBeLookedAt() {
  const rlimit none{0, 0};
  ::setrlimit(RLIMIT_CORE, &none);
  ::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
}

}  // namespace window

#include "ui/window/askpass/SecretText.h"

#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

namespace window {
namespace {

constexpr std::size_t kMapped = 4096;
static_assert(SecretText::kCapacity < kMapped, "the line break has room too");

bool isContinuation(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
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

void refuseToBeLookedAt() {
  const rlimit none{0, 0};
  ::setrlimit(RLIMIT_CORE, &none);
  ::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
}

}  // namespace window

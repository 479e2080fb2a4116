// Where memory runs out while an XML property list is read: at each allocation in turn.
#include <dlfcn.h>
#include <execinfo.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "platform/linux/LinuxPropertyLists.h"

namespace {

constexpr long kNever = -1;
long allocationsLeft = kNever;  ///< until one fails
bool isThrownInParser = false;
bool isCaughtInParser = false;

/// Whether a function of expat is at work.
bool isInParser() {
  std::array<void*, 64> frames{};
  const int count = ::backtrace(frames.data(), static_cast<int>(frames.size()));
  for (int at = 0; at < count; ++at) {
    Dl_info info{};
    const bool isKnown = ::dladdr(frames.at(static_cast<std::size_t>(at)), &info) != 0;
    if (isKnown && std::strstr(info.dli_fname, "libexpat") != nullptr) return true;
  }
  return false;
}

}  // namespace

// Not inlined: the compiler would take free() for the wrong way to give back what came from operator new.
[[gnu::noinline]] void* operator new(std::size_t size) {
  if (allocationsLeft != kNever && allocationsLeft-- == 0) {
    isThrownInParser = isInParser();
    throw std::bad_alloc();
  }
  void* const memory = std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

[[gnu::noinline]] void operator delete(void* memory) noexcept {
  std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

/// Called wherever something is caught.
extern "C" void* __cxa_begin_catch(void* exception) noexcept {  // NOLINT(bugprone-reserved-identifier)
  using BeginCatch = void* (*)(void*);
  static const auto next = reinterpret_cast<BeginCatch>(::dlsym(RTLD_NEXT, "__cxa_begin_catch"));
  isCaughtInParser = isCaughtInParser || isInParser();
  return next(exception);
}

namespace {

using foundation::PropertyList;

std::string listOfMany() {
  std::string list = "<plist><dict>";
  for (int number = 0; number < 20; ++number) {
    list += "<key>a key that is not short " + std::to_string(number) + "</key><array><string>" +
            std::string(100, 'x') + "</string><data>QUJDREVGR0hJSktMTU5PUFFSU1RVVldYWVoxMjM0</data></array>";
  }
  return list + "</dict></plist>";
}

/// Reads with an allocation that fails; false where so many are not made.
bool throwsAt(long allocation, const std::string& bytes) {
  platform::LinuxPropertyLists lists;
  isThrownInParser = isCaughtInParser = false;
  allocationsLeft = allocation;
  try {
    const auto value = lists.parse(bytes);
    allocationsLeft = kNever;
    EXPECT_TRUE(value);
    return false;
  } catch (const std::bad_alloc&) {
    allocationsLeft = kNever;
    return true;
  }
}

/// The parser is written in C: what is thrown may not unwind it.
TEST(XmlPropertyListThrows, NothingThatIsThrownPassesThroughTheParser) {
  const std::string bytes = listOfMany();
  const auto sound = platform::LinuxPropertyLists().parse(bytes).value();
  int inParser = 0;
  long allocation = 0;
  for (; throwsAt(allocation, bytes); ++allocation) {
    EXPECT_EQ(isCaughtInParser, isThrownInParser) << allocation;
    inParser += isThrownInParser ? 1 : 0;
  }
  EXPECT_GT(inParser, 100);
  EXPECT_EQ(platform::LinuxPropertyLists().parse(bytes).value(), sound) << "nothing of it stays";
}

}  // namespace

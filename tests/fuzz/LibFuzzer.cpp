// One target (FUZZ_TARGET) as libFuzzer calls it.
#include <cstddef>
#include <cstdint>

#include "tests/fuzz/Targets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  fuzz::FUZZ_TARGET({reinterpret_cast<const char*>(bytes), size});
  return 0;
}

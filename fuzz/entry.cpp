// The entry of one fuzzer; the build names its target.

#include "fuzz/targets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const FuzzTarget target = FUZZ_TARGETS.at(FUZZ_TARGET);
  target(data, size);
  return 0;
}

// The entry of one fuzzer; the build names its target.

#include "fuzz/targets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FUZZ_TARGET(data, size);
  return 0;
}

// Memory that counts, and fails as it is told, for what takes its memory operations as a table.
#pragma once

#include <cerrno>
#include <cstdlib>

#include "shared/include/vmk_errmsg.h"

/// What the operations below were asked, and how they answer.
struct Memory {
  int allocations = 0;
  std::size_t last_size = 0;
  int refusals = 0;                   ///< so many more are refused
  bool refuse_until_reserve = false;  ///< while a block of the reserve's size is held
  void* reserve = nullptr;

  [[nodiscard]] bool refuses(std::size_t size) {
    ++allocations;
    last_size = size;
    errno = ENOMEM;
    return (refuse_until_reserve && reserve != nullptr) || (refusals > 0 && refusals-- > 0);
  }
};

inline Memory memory;

inline void* allocate_counted(std::size_t size) {
  void* const block = memory.refuses(size) ? nullptr : std::malloc(size);
  if (size == DIAGNOSTIC_RESERVE_SIZE) memory.reserve = block;
  return block;
}

inline void* resize_counted(void* block, std::size_t size) {
  return memory.refuses(size) ? nullptr : std::realloc(block, size);
}

inline void release_counted(void* block) {
  if (block == memory.reserve) memory.reserve = nullptr;
  std::free(block);
}

const MemoryOperations COUNTED_MEMORY = {std::calloc, allocate_counted, release_counted,
                                         resize_counted, release_counted};

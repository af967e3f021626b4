// Texts in blocks of the C allocator, and what ends the process without memory.
#pragma once

#include <cstdlib>
#include <memory>
#include <new>

#include "shared/include/vmk_errmsg.h"

/// For blocks of the C allocator.
struct FreeBlock {
  void operator()(void* block) const { std::free(block); }
};
using TextBlock = std::unique_ptr<char[], FreeBlock>;

/// A new copy of `text`, owned by the caller. Without memory for it the process ends with an
/// assertion report of the site and the reason.
[[nodiscard]] TextBlock copy_or_stop(const char* text, ReportSite site, const char* reason);

/// Gives a block another size in bytes, and keeps what fits of its text. False without memory for
/// it; the block then stays as it was.
[[nodiscard]] bool resize(TextBlock& block, std::size_t size);

/// Runs an action. Where memory runs out in it the process ends with an assertion report of the
/// site and the reason.
template <typename Action>
void with_memory(ReportSite site, const char* reason, Action action) {
  try {
    action();
  } catch (const std::bad_alloc&) {
    assertion_report(site, "%s", reason);
  }
}

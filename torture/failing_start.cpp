// Loaded before a program: allocations fail from the very first on, those before main included.
// FAIL_AT says which, FAIL_EVER that none after it succeeds either.

#include <cerrno>
#include <cstddef>
#include <cstdlib>

extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);

static bool fails() {
  static long left = -1;
  const char* const at = left < 0 ? std::getenv("FAIL_AT") : nullptr;
  if (at != nullptr) left = std::atol(at);
  if (left > 0 ? --left != 0 : std::getenv("FAIL_EVER") == nullptr) return false;
  errno = ENOMEM;
  return true;
}

void* malloc(std::size_t size) { return fails() ? nullptr : __libc_malloc(size); }

void* calloc(std::size_t count, std::size_t size) {
  return fails() ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* block, std::size_t size) {
  return fails() ? nullptr : __libc_realloc(block, size);
}

}  // extern "C"

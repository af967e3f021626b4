#include "torture/failing_memory.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

constinit Schedule schedule;

bool fails() {
  if (!schedule.strikes()) return false;
  errno = ENOMEM;
  return true;
}

}  // namespace

Schedule& failing_allocations() { return schedule; }

// The sanitizer's own functions stand behind these, and libraries find these first.
extern "C" {

void* __interceptor_malloc(std::size_t size);
void* __interceptor_calloc(std::size_t count, std::size_t size);
void* __interceptor_realloc(void* block, std::size_t size);

void* malloc(std::size_t size) { return fails() ? nullptr : __interceptor_malloc(size); }

void* calloc(std::size_t count, std::size_t size) {
  return fails() ? nullptr : __interceptor_calloc(count, size);
}

void* realloc(void* block, std::size_t size) {
  return fails() ? nullptr : __interceptor_realloc(block, size);
}

char* strndup(const char* text, std::size_t limit) {
  const std::size_t length = strnlen(text, limit);
  auto* const copy = static_cast<char*>(std::malloc(length + 1));
  if (copy == nullptr) return nullptr;
  std::memcpy(copy, text, length);
  copy[length] = '\0';
  return copy;
}

char* strdup(const char* text) { return strndup(text, std::strlen(text)); }

}  // extern "C"

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return std::malloc(std::max<std::size_t>(size, 1));
}

void* operator new(std::size_t size) {
  void* const block = operator new(size, std::nothrow);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

void* operator new[](std::size_t size) { return operator new(size); }

void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept {
  return operator new(size, tag);
}

void operator delete(void* block) noexcept { std::free(block); }

void operator delete[](void* block) noexcept { std::free(block); }

void operator delete(void* block, std::size_t /*size*/) noexcept { std::free(block); }

void operator delete[](void* block, std::size_t /*size*/) noexcept { std::free(block); }

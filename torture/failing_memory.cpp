#include "torture/failing_memory.h"

#include <dlfcn.h>

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

namespace {

using New = void* (*)(std::size_t);

/// The sanitizer's operator of that name, which knows blocks of new, new[] and malloc apart.
New sanitizers_own(const char* name) { return reinterpret_cast<New>(dlsym(RTLD_NEXT, name)); }

void* allocate(std::size_t size) {
  static const New next = sanitizers_own("_Znwm");
  return fails() ? nullptr : next(size);
}

void* allocate_array(std::size_t size) {
  static const New next = sanitizers_own("_Znam");
  return fails() ? nullptr : next(size);
}

void* or_throw(void* block) {
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

}  // namespace

void* operator new(std::size_t size) { return or_throw(allocate(size)); }

void* operator new[](std::size_t size) { return or_throw(allocate_array(size)); }

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return allocate(size);
}

void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return allocate_array(size);
}

// Besides what the header says: allocations that fail. Linked into a program, what stands here
// comes before malloc, its kin and operator new, whoever calls them: the program, the C++ library,
// the C library.

#include "torture/disturbance.h"

#include <dlfcn.h>

#include <cerrno>
#include <cstdlib>
#include <new>

constinit Disturbance disturbance = {};

bool Disturbance::strikes(Treatment by) {
  if (!armed || by != treatment || ++places < nth || (places > nth && !lasting)) return false;
  ++*met;
  return true;
}

namespace {

bool fails() {
  if (!disturbance.strikes(Treatment::MEMORY)) return false;
  errno = ENOMEM;
  return true;
}

}  // namespace

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

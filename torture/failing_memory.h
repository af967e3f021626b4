// Allocations that fail on demand. Linked into a program, this stands before malloc, its kin and
// operator new, whoever calls them: the program, the C++ library, the C library.
#pragma once

#include <cstdint>

/// From now on allocation `nth` fails (1 is the next one), and with `lasting` set every later one
/// too. Each failure is counted in `failures`, which the caller keeps.
void fail_allocation(std::uint64_t nth, bool lasting, std::uint64_t& failures);

/// While it lives, allocations work, and are not counted.
class WorkingMemory {
 public:
  WorkingMemory();
  ~WorkingMemory();
  WorkingMemory(const WorkingMemory&) = delete;
  WorkingMemory& operator=(const WorkingMemory&) = delete;

 private:
  bool before_;
};

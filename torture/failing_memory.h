// Allocations that fail on demand. Linked into a program, this stands before malloc, its kin and
// operator new, whoever calls them: the program, the C++ library, the C library.
#pragma once

#include "torture/schedule.h"

/// Says which allocations fail.
[[nodiscard]] Schedule& failing_allocations();

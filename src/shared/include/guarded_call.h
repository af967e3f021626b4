// Calls into foreign code that may fault. One source per target implements it.
#pragma once

/// Calls `function` with `argument`. Returns true when it came back, false when it raised an access
/// violation or another structured exception, which then ends there. Objects on the stack of the
/// abandoned call are not destroyed.
[[nodiscard]] bool guarded_call(void (*function)(void* argument), void* argument);

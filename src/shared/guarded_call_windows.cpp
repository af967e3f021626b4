#include <windows.h>

#include "shared/include/guarded_call.h"

namespace {

/// A jump buffer of the compiler: a jump through it restores the frame and unwinds nothing, since
/// the frames of the faulting library cannot be trusted.
using JumpBuffer = void* [5];

JumpBuffer* landing = nullptr;
DWORD guarded_thread = 0;

[[noreturn]] void leave_call() { __builtin_longjmp(*landing, 1); }

/// The last to be asked about an exception, after every handler of the library's own. Sends the
/// thread to leave_call instead of jumping out of the dispatcher, whose frames must not be skipped.
LONG WINAPI divert_fault(EXCEPTION_POINTERS* fault) {
  if (landing == nullptr || GetCurrentThreadId() != guarded_thread) {
    return EXCEPTION_CONTINUE_SEARCH;
  }
  CONTEXT& context = *fault->ContextRecord;
  const auto target = reinterpret_cast<ULONG_PTR>(&leave_call);
#if defined(__x86_64__)
  // As after a call: the stack 16-byte aligned before the return address was pushed.
  context.Rsp = (context.Rsp & ~static_cast<ULONG_PTR>(15)) - 40;
  context.Rip = target;
#else
  context.Esp = (context.Esp & ~static_cast<DWORD>(15)) - 20;
  context.Eip = static_cast<DWORD>(target);
#endif
  return EXCEPTION_CONTINUE_EXECUTION;
}

}  // namespace

bool guarded_call(void (*function)(void* argument), void* argument) {
  JumpBuffer buffer;
  JumpBuffer* const outer_landing = landing;
  const LPTOP_LEVEL_EXCEPTION_FILTER outer_filter = SetUnhandledExceptionFilter(divert_fault);
  volatile bool returned = false;
  if (__builtin_setjmp(buffer) == 0) {
    landing = &buffer;
    guarded_thread = GetCurrentThreadId();
    function(argument);
    returned = true;
  }
  landing = outer_landing;
  SetUnhandledExceptionFilter(outer_filter);
  return returned;
}

#include <windows.h>

#include "shared/include/guarded_call.h"

namespace {

/// A jump buffer of the compiler: a jump through it restores the frame and unwinds nothing, since
/// the frames of the faulting library cannot be trusted.
using JumpBuffer = void* [5];

/// String instructions go backwards under it; compiled code wants it clear.
constexpr DWORD DIRECTION_FLAG = 0x400;

JumpBuffer* landing = nullptr;
DWORD guarded_thread = 0;

// On 32-bit systems the thread's chain of handlers, at the start of its block, runs through the
// stack that a fault leaves behind; on 64-bit ones there is no such chain.
#if defined(__x86_64__)
void* handler_chain() { return nullptr; }
void set_handler_chain(void* /*handlers*/) {}
#else
void* handler_chain() {
  void* handlers = nullptr;
  asm volatile("movl %%fs:0, %0" : "=r"(handlers));
  return handlers;
}
void set_handler_chain(void* handlers) { asm volatile("movl %0, %%fs:0" : : "r"(handlers)); }
#endif

[[noreturn]] void leave_call() { __builtin_longjmp(*landing, 1); }

/// The last to be asked about an exception, after every handler of the library's own. Sends the
/// thread to leave_call instead of jumping out of the dispatcher, whose frames must not be skipped.
LONG WINAPI divert_fault(EXCEPTION_POINTERS* fault) {
  if (landing == nullptr || GetCurrentThreadId() != guarded_thread) {
    return EXCEPTION_CONTINUE_SEARCH;
  }
  CONTEXT& context = *fault->ContextRecord;
  context.EFlags &= ~static_cast<DWORD>(DIRECTION_FLAG);
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
  void* const outer_handlers = handler_chain();
  volatile bool returned = false;
  if (__builtin_setjmp(buffer) == 0) {
    landing = &buffer;
    guarded_thread = GetCurrentThreadId();
    function(argument);
    returned = true;
  }
  set_handler_chain(outer_handlers);
  landing = outer_landing;
  SetUnhandledExceptionFilter(outer_filter);
  return returned;
}

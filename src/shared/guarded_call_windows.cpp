#include <windows.h>

#include "shared/include/guarded_call.h"

namespace {

/// A jump buffer of the compiler: a jump through it restores the frame and unwinds nothing, since
/// the frames of the faulting library cannot be trusted.
using JumpBuffer = void* [5];

JumpBuffer* landing = nullptr;
DWORD guarded_thread = 0;

/// Debuggers and languages use exceptions below this severity among themselves.
constexpr DWORD FIRST_ERROR_CODE = 0xC0000000;

[[noreturn]] void leave_call() { __builtin_longjmp(*landing, 1); }

/// Sends the faulting thread to leave_call instead of jumping out of the dispatcher, whose frames
/// must not be skipped.
LONG CALLBACK divert_fault(EXCEPTION_POINTERS* fault) {
  if (landing == nullptr || GetCurrentThreadId() != guarded_thread ||
      fault->ExceptionRecord->ExceptionCode < FIRST_ERROR_CODE) {
    return EXCEPTION_CONTINUE_SEARCH;
  }
  CONTEXT& context = *fault->ContextRecord;
  const auto target = reinterpret_cast<ULONG_PTR>(&leave_call);
#if defined(__x86_64__)
  // As after a call: the stack 16-byte aligned before the return address was pushed.
  context.Rsp = (context.Rsp & ~static_cast<ULONG_PTR>(15)) - 40;
  context.Rip = target;
#else
  context.Esp = static_cast<DWORD>((context.Esp & ~static_cast<ULONG_PTR>(15)) - 20);
  context.Eip = static_cast<DWORD>(target);
#endif
  return EXCEPTION_CONTINUE_EXECUTION;
}

}  // namespace

bool guarded_call(void (*function)(void* argument), void* argument) {
  // Bound at run time: the oldest hosts have no vectored handlers, and there the call goes
  // unguarded.
  const HMODULE kernel = GetModuleHandleA("kernel32");
  const auto add = reinterpret_cast<decltype(&AddVectoredExceptionHandler)>(
      reinterpret_cast<void*>(GetProcAddress(kernel, "AddVectoredExceptionHandler")));
  const auto remove = reinterpret_cast<decltype(&RemoveVectoredExceptionHandler)>(
      reinterpret_cast<void*>(GetProcAddress(kernel, "RemoveVectoredExceptionHandler")));
  void* const handler = add != nullptr ? add(1, divert_fault) : nullptr;

  JumpBuffer buffer;
  JumpBuffer* const outer = landing;
  volatile bool returned = false;
  if (__builtin_setjmp(buffer) == 0) {
    landing = &buffer;
    guarded_thread = GetCurrentThreadId();
    function(argument);
    returned = true;
  }
  landing = outer;
  if (handler != nullptr && remove != nullptr) remove(handler);
  return returned;
}

#include <windows.h>

#include "shared/include/guarded_call.h"

// A frame with an exception handler of its own, which is asked about every exception of the call
// before whoever would continue it or end the program. The compiler has no words for such a frame.
//
// guarded_frame(function, argument): 1 when the call returned, 0 when an exception left it, whose
// code then stands in guarded_exception_code. The frames between are unwound, so that the caller's
// registers are as they were.
#if defined(__x86_64__)

// The platform's C handler, with a scope table of one row: for exceptions from the call the filter
// answers 1 (leave the call), and control goes to the row's last address.
asm(R"(
        .text
        .globl  guarded_frame
        .def    guarded_frame; .scl 2; .type 32; .endef
        .seh_proc guarded_frame
guarded_frame:
        subq    $40, %rsp
        .seh_stackalloc 40
        .seh_endprologue
        movq    %rcx, %rax
        movq    %rdx, %rcx
.Lcall:
        call    *%rax
        nop
.Lcall_end:
        movl    $1, %eax
        addq    $40, %rsp
        ret
.Lfault:
        cld
        xorl    %eax, %eax
        addq    $40, %rsp
        ret
        .seh_handler __C_specific_handler, @except
        .seh_handlerdata
        .long   1
        .rva    .Lcall, .Lcall_end
        .rva    .Lfilter
        .rva    .Lfault
        .text
        .seh_endproc
.Lfilter:
        movq    (%rcx), %rax
        movl    (%rax), %eax
        movl    %eax, guarded_exception_code(%rip)
        movl    $1, %eax
        ret
)");

#else

// A record on the thread's chain of handlers, which begins at fs:0. The handler unwinds what lies
// above the record and goes on behind the call. An unwinding that goes past the record passes by.
asm(R"(
        .text
        .globl  _guarded_frame
_guarded_frame:
        pushl   %ebp
        movl    %esp, %ebp
        pushl   %ebx
        pushl   %esi
        pushl   %edi
        pushl   $Lhandler
        pushl   %fs:0
        movl    %esp, %fs:0
        pushl   12(%ebp)
        call    *8(%ebp)
        movl    $1, %eax
Lleave:
        leal    -20(%ebp), %esp
        popl    %fs:0
        addl    $4, %esp
        popl    %edi
        popl    %esi
        popl    %ebx
        popl    %ebp
        ret
Lhandler:
        movl    4(%esp), %eax
        testl   $6, 4(%eax)
        jnz     Lunwinding
        movl    (%eax), %ecx
        movl    %ecx, _guarded_exception_code
        movl    8(%esp), %ecx
        pushl   $0
        pushl   %eax
        pushl   $Lunwound
        pushl   %ecx
        call    _RtlUnwind@16
Lunwound:
        movl    8(%esp), %ebp
        addl    $20, %ebp
        cld
        xorl    %eax, %eax
        jmp     Lleave
Lunwinding:
        movl    $1, %eax
        ret
)");

#endif

extern "C" {
int guarded_frame(void (*function)(void* argument), void* argument);
DWORD guarded_exception_code = 0;
}

namespace {

// ---- Exceptions that reach no frame -------------------------------------------------------------

// Where the frames of the call cannot be walked, its own handler is not found. The platform's last
// question, before it ends the program, leads back here.
void* landing[5];

LONG WINAPI land(EXCEPTION_POINTERS* exception) {
  guarded_exception_code = exception->ExceptionRecord->ExceptionCode;
  __builtin_longjmp(landing, 1);
}

/// The thread's chain of handlers, which a jump past them must shorten itself.
class HandlerChain {
 public:
#if defined(__x86_64__)
  void restore() const {}
#else
  HandlerChain() { asm volatile("movl %%fs:0, %0" : "=r"(first_)); }
  void restore() const { asm volatile("movl %0, %%fs:0" : : "r"(first_)); }

 private:
  void* first_;
#endif
};

bool call_in_frame(void (*function)(void* argument), void* argument) {
  const HandlerChain chain;
  if (__builtin_setjmp(landing) == 0) return guarded_frame(function, argument) != 0;
  chain.restore();
  return false;
}

/// An overflow takes the stack's guard page away: without it the next one would end the program.
/// The runtime libraries of the oldest hosts do not know how to put it back.
void restore_guard_page() {
  using Reset = int (*)();
  const HMODULE runtime = GetModuleHandleA("msvcrt");
  if (runtime == nullptr) return;
  const auto reset =
      reinterpret_cast<Reset>(reinterpret_cast<void*>(GetProcAddress(runtime, "_resetstkoflw")));
  if (reset != nullptr) static_cast<void>(reset());
}

}  // namespace

bool guarded_call(void (*function)(void* argument), void* argument) {
  const auto before = SetUnhandledExceptionFilter(land);
  guarded_exception_code = 0;
  const bool returned = call_in_frame(function, argument);
  SetUnhandledExceptionFilter(before);
  if (guarded_exception_code == EXCEPTION_STACK_OVERFLOW) restore_guard_page();
  return returned;
}

// A DHCP client library for the tests on a Windows runtime: STANDIN_DHCP in the environment says
// whether a change works, is refused ("refuse"), or ends in an exception ("except"): each call in
// the next kind of it.

#include <windows.h>

#include <cstdlib>
#include <cstring>
#include <iterator>

namespace {

void read_nowhere() {
  volatile ULONG_PTR nowhere = 8;
  static_cast<void>(*reinterpret_cast<volatile DWORD*>(nowhere));
}

void divide_by_nothing() {
  volatile int divisor = 0;
  volatile int dividend = 100;
  dividend = dividend / divisor;
}

struct Exception {
  void (*fault)();  ///< null: the code is raised
  DWORD code;
  DWORD flags;
};

constexpr Exception EXCEPTIONS[] = {
    {read_nowhere, 0, 0},
    {divide_by_nothing, 0, 0},
    {nullptr, 1722, 0},
    {nullptr, 1722, EXCEPTION_NONCONTINUABLE},
    {nullptr, 0xE06D7363, EXCEPTION_NONCONTINUABLE},  // as C++ programs raise
    // What the C runtime's start-up would continue.
    {nullptr, 0x80000002, 0},
    {nullptr, 0xC0000008, 0},
    {nullptr, 0xC000008C, 0},
    {nullptr, 0xC0000092, 0},
    {nullptr, 0xC0000095, 0},
};

void except() {
  static std::size_t calls = 0;
  const auto& [fault, code, flags] = EXCEPTIONS[calls++ % std::size(EXCEPTIONS)];
  if (fault != nullptr) {
    fault();
  } else {
    RaiseException(code, flags, 0, nullptr);
  }
}

}  // namespace

extern "C" __declspec(dllexport) DWORD WINAPI
    DhcpNotifyConfigChange(LPWSTR /*server*/, LPWSTR /*adapter*/, BOOL /*new_address*/,
                           DWORD /*position*/, DWORD /*address*/, DWORD /*mask*/, int /*action*/) {
  const char* what = std::getenv("STANDIN_DHCP");
  if (what == nullptr) return NO_ERROR;
  if (std::strcmp(what, "refuse") == 0) return ERROR_SERVICE_NOT_ACTIVE;
  except();
  return NO_ERROR;
}

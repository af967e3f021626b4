// A DHCP client library for the tests on a Windows runtime: STANDIN_DHCP in the environment says
// whether a change works, is refused ("refuse"), or ends in a fault ("read", "divide", "raise").

#include <windows.h>

#include <cstdlib>
#include <cstring>

extern "C" __declspec(dllexport) DWORD WINAPI
    DhcpNotifyConfigChange(LPWSTR /*server*/, LPWSTR /*adapter*/, BOOL /*new_address*/,
                           DWORD /*position*/, DWORD /*address*/, DWORD /*mask*/, int /*action*/) {
  const char* what = std::getenv("STANDIN_DHCP");
  if (what == nullptr) return NO_ERROR;
  if (std::strcmp(what, "refuse") == 0) return ERROR_SERVICE_NOT_ACTIVE;
  volatile ULONG_PTR nowhere = 8;
  if (std::strcmp(what, "read") == 0) return *reinterpret_cast<volatile DWORD*>(nowhere);
  volatile int divisor = 0;
  volatile int dividend = 100;
  if (std::strcmp(what, "divide") == 0) return static_cast<DWORD>(dividend / divisor);
  if (std::strcmp(what, "raise") == 0) RaiseException(1722, 0, 0, nullptr);
  return NO_ERROR;
}

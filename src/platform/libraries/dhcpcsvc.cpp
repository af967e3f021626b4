// Stands in for the DHCP client library.

#include <string>

#include "platform/host/calls.h"
#include "platform/host/host.h"

DWORD WINAPI DhcpNotifyConfigChange(LPWSTR /*server*/, LPWSTR adapter, BOOL /*new_address*/,
                                    DWORD position, DWORD address, DWORD mask,
                                    INT /*dhcp_action*/) {
  return run_returning_code("DhcpNotifyConfigChange", [=]() -> DWORD {
    std::string name;
    for (const WCHAR* wide = adapter; *wide != 0; ++wide) name += static_cast<char>(*wide);
    return current_host().change_listed_address(name, position, address, mask);
  });
}

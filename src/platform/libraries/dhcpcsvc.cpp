// Stands in for the DHCP client library.

#include <string>

#include "platform/hosts/calls.h"
#include "platform/hosts/host.h"
#include "platform/libraries/library_functions.h"

DWORD WINAPI DhcpNotifyConfigChange(LPWSTR /*server*/, LPWSTR adapter, BOOL /*new_address*/,
                                    DWORD position, DWORD address, DWORD mask,
                                    INT /*dhcp_action*/) {
  return answering_code("DhcpNotifyConfigChange", [=]() -> DWORD {
    std::string name;
    for (const WCHAR* wide = adapter; *wide != 0; ++wide) name += static_cast<char>(*wide);
    return current_host().change_listed_address(name, position, address, mask);
  });
}

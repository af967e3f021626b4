// The functions that the layer's run-time libraries hold.
#pragma once

#include <string_view>

#include <windows.h>

/// The function of a library, both by name; null when the layer has none of that name.
[[nodiscard]] FARPROC library_function(std::string_view library, std::string_view function);

/// The DHCP client library's function, which the platform's headers do not declare.
extern "C" DWORD WINAPI DhcpNotifyConfigChange(LPWSTR server, LPWSTR adapter, BOOL new_address,
                                               DWORD position, DWORD address, DWORD mask,
                                               INT dhcp_action);

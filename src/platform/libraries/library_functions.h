// The functions that the layer's run-time libraries hold.
#pragma once

#include <string_view>

#include <windows.h>

/// The function of a library, both by name; null when the layer has none of that name.
[[nodiscard]] FARPROC library_function(std::string_view library, std::string_view function);

// The resolver's functions, found at run time under the system library's names.
extern "C" int WINAPI platform_getaddrinfo(const char* node, const char* service,
                                           const struct addrinfo* hints, struct addrinfo** answer);
extern "C" void WINAPI platform_freeaddrinfo(struct addrinfo* answer);
extern "C" int WINAPI platform_getnameinfo(const struct sockaddr* address, unsigned length,
                                           char* host, unsigned host_size, char* service,
                                           unsigned service_size, int flags);

/// The DHCP client library's function, which the platform's headers do not declare.
extern "C" DWORD WINAPI DhcpNotifyConfigChange(LPWSTR server, LPWSTR adapter, BOOL new_address,
                                               DWORD position, DWORD address, DWORD mask,
                                               INT dhcp_action);

// Stands in for ws2_32 where the system library of this machine does not serve as it is.

#include <winsock2.h>

#include <ws2tcpip.h>

#include "platform/host/calls.h"

int WINAPI WSAStartup(WORD version, LPWSADATA data) {
  if (const auto code = scripted_failure("WSAStartup")) return static_cast<int>(*code);
  *data = {version, version};
  return 0;
}

int WINAPI platform_getaddrinfo(const char* node, const char* service, const addrinfo* hints,
                                addrinfo** answer) {
  const ErrnoKeeper keeper;
  if (const auto code = scripted_failure("getaddrinfo")) return static_cast<int>(*code);
  return getaddrinfo(node, service, hints, answer);
}

void WINAPI platform_freeaddrinfo(addrinfo* answer) {
  static_cast<void>(scripted_failure("freeaddrinfo"));
  freeaddrinfo(answer);
}

int WINAPI platform_getnameinfo(const sockaddr* address, unsigned length, char* host,
                                unsigned host_size, char* service, unsigned service_size,
                                int flags) {
  const ErrnoKeeper keeper;
  if (const auto code = scripted_failure("getnameinfo")) return static_cast<int>(*code);
  return getnameinfo(address, length, host, host_size, service, service_size, flags);
}

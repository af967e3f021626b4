// The part of Windows Sockets that the modules use: address texts and byte order, which the system
// library of this machine has under the same names.
#pragma once

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <windows.h>

// NOLINTBEGIN(modernize-use-using,cppcoreguidelines-macro-usage): the platform's own spelling
extern "C" {

typedef struct WSAData {
  WORD wVersion;
  WORD wHighVersion;
} WSADATA, *LPWSADATA;

#define MAKEWORD(low, high) (static_cast<WORD>((high) << 8 | (low)))

/// Sockets need no preparation here.
int WINAPI WSAStartup(WORD version, LPWSADATA data);

}  // extern "C"
// NOLINTEND(modernize-use-using,cppcoreguidelines-macro-usage)

// The part of Windows Sockets that the modules use: address texts and byte order, which the system
// library of this machine has under the same names.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>

#include <windows.h>

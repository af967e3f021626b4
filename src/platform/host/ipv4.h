// IPv4 addresses and masks as the layer's hosts hold them: in network byte order.
#pragma once

#include <string>

#include <windows.h>

/// The dotted text of a value.
[[nodiscard]] std::string dotted(DWORD value);

/// Whether a host may have the address: not of this network (0), loopback, multicast or beyond.
[[nodiscard]] bool is_host_address(DWORD address);

/// The mask of a prefix of 0 to 32 bits.
[[nodiscard]] DWORD prefix_mask(DWORD length);

/// Whether no bit follows a clear one.
[[nodiscard]] bool is_mask(DWORD mask);

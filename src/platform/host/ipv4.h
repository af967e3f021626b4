// IPv4 addresses and masks as the layer's hosts hold them: in network byte order.
#pragma once

#include <cstddef>
#include <string>

#include <windows.h>

/// The dotted text of a value.
[[nodiscard]] std::string dotted(DWORD value);

/// Writes dotted texts one after the other. What a text has in common with the one before it, all but
/// its last number in a run of addresses, is not made again.
class DottedWriter {
 public:
  void write(char (&text)[16], DWORD value);

 private:
  char front_[16] = "0.0.0.";
  std::size_t front_length_ = 6;
  BYTE bytes_[4] = {};
};

/// Whether a host may have the address: not of this network (0), loopback, multicast or beyond.
[[nodiscard]] bool is_host_address(DWORD address);

/// The mask of a prefix of 0 to 32 bits.
[[nodiscard]] DWORD prefix_mask(DWORD length);

/// Whether no bit follows a clear one.
[[nodiscard]] bool is_mask(DWORD mask);

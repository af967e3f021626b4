#include "platform/host/ipv4.h"

#include <arpa/inet.h>

#include <bit>
#include <cstdint>

#include "base/dotted.h"

std::string dotted(DWORD value) {
  char text[DOTTED_SIZE];
  write_dotted(text, value);
  return text;
}

bool is_host_address(DWORD address) {
  const std::uint32_t first = ntohl(address) >> 24;
  return first != 0 && first != 127 && first < 224;
}

DWORD prefix_mask(DWORD length) {
  return length == 0 ? 0 : htonl(~std::uint32_t{0} << (32 - length));
}

bool is_mask(DWORD mask) {
  const std::uint32_t bits = ntohl(mask);
  return std::countl_one(bits) == std::popcount(bits);
}

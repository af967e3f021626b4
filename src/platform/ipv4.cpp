#include "platform/ipv4.h"

#include <arpa/inet.h>

#include <bit>
#include <cstdint>
#include <cstring>

void write_dotted(char (&text)[16], DWORD value) {
  BYTE bytes[4];
  std::memcpy(bytes, &value, sizeof bytes);
  char* at = text;
  for (const BYTE byte : bytes) {
    if (byte >= 100) *at++ = static_cast<char>('0' + byte / 100);
    if (byte >= 10) *at++ = static_cast<char>('0' + byte / 10 % 10);
    *at++ = static_cast<char>('0' + byte % 10);
    *at++ = '.';
  }
  at[-1] = '\0';
}

std::string dotted(DWORD value) {
  char text[16];
  write_dotted(text, value);
  return text;
}

bool is_host_address(DWORD address) {
  const std::uint32_t first = ntohl(address) >> 24;
  return first != 0 && first != 127 && first < 224;
}

bool is_mask(DWORD mask) {
  const std::uint32_t bits = ntohl(mask);
  return std::countl_one(bits) == std::popcount(bits);
}

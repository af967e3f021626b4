#include "platform/host/ipv4.h"

#include <arpa/inet.h>

#include <bit>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <iterator>

std::string dotted(DWORD value) {
  char text[16];
  DottedWriter().write(text, value);
  return text;
}

void DottedWriter::write(char (&text)[16], DWORD value) {
  BYTE bytes[sizeof value];
  std::memcpy(bytes, &value, sizeof value);
  if (std::memcmp(bytes, bytes_, sizeof bytes - 1) != 0) {
    char* at = front_;
    for (int i = 0; i < 3; ++i) {
      at = std::to_chars(at, std::end(front_), bytes[i]).ptr;
      *at++ = '.';
    }
    front_length_ = static_cast<std::size_t>(at - front_);
    std::memcpy(bytes_, bytes, sizeof bytes);
  }
  std::memcpy(text, front_, sizeof text);
  *std::to_chars(text + front_length_, std::end(text), bytes[3]).ptr = '\0';
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

#include "platform/hosts/ipv4.h"

#include <arpa/inet.h>

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

namespace {

/// The digits of a byte, each followed by a dot.
struct ByteText {
  char text[4];
  std::uint8_t length;
};

constexpr std::array<ByteText, 256> byte_texts() {
  std::array<ByteText, 256> texts{};
  for (unsigned byte = 0; byte < texts.size(); ++byte) {
    ByteText& text = texts[byte];
    if (byte >= 100) text.text[text.length++] = static_cast<char>('0' + byte / 100);
    if (byte >= 10) text.text[text.length++] = static_cast<char>('0' + byte / 10 % 10);
    text.text[text.length++] = static_cast<char>('0' + byte % 10);
    text.text[text.length++] = '.';
  }
  return texts;
}

constexpr auto BYTE_TEXTS = byte_texts();

}  // namespace

void write_dotted(char (&text)[16], DWORD value) {
  BYTE bytes[4];
  std::memcpy(bytes, &value, sizeof bytes);
  char* at = text;
  for (const BYTE byte : bytes) {
    // All four, since a fixed size is quickest; what is too much is written over.
    std::memcpy(at, BYTE_TEXTS[byte].text, sizeof BYTE_TEXTS[byte].text);
    at += BYTE_TEXTS[byte].length;
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

DWORD prefix_mask(DWORD length) {
  return length == 0 ? 0 : htonl(~std::uint32_t{0} << (32 - length));
}

bool is_mask(DWORD mask) {
  const std::uint32_t bits = ntohl(mask);
  return std::countl_one(bits) == std::popcount(bits);
}

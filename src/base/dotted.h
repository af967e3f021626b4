// The dotted texts of IPv4 addresses and masks.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

/// In bytes, the NUL included.
constexpr std::size_t DOTTED_SIZE = sizeof "255.255.255.255";

/// The digits of each byte, followed by a dot.
struct NumberText {
  char text[4];
  std::uint8_t length;
};

constexpr std::array<NumberText, 256> number_texts() {
  std::array<NumberText, 256> numbers{};
  for (unsigned number = 0; number < numbers.size(); ++number) {
    auto& [text, length] = numbers[number];
    if (number >= 100) text[length++] = static_cast<char>('0' + number / 100);
    if (number >= 10) text[length++] = static_cast<char>('0' + number / 10 % 10);
    text[length++] = static_cast<char>('0' + number % 10);
    text[length++] = '.';
  }
  return numbers;
}

/// Writes the text of a value (network byte order) into a buffer of DOTTED_SIZE bytes. By table: a
/// report of a hundred thousand addresses writes them millions of times.
inline void write_dotted(char* text, std::uint32_t value) {
  static constexpr auto NUMBERS = number_texts();
  unsigned char bytes[sizeof value];
  std::memcpy(bytes, &value, sizeof bytes);
  char* at = text;
  for (const unsigned char byte : bytes) {
    // All four, since a fixed size is quickest; what is too much is written over.
    std::memcpy(at, NUMBERS[byte].text, sizeof NUMBERS[byte].text);
    at += NUMBERS[byte].length;
  }
  at[-1] = '\0';
}

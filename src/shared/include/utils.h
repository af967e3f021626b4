// Text helpers of the product's shared library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

/// Copies `text` into a buffer of `size` bytes (at least 1), cut to fit, and terminates it.
void copy_cut(char* buffer, std::size_t size, std::string_view text);

/// Copies `text` into a fixed field, cut to fit.
template <std::size_t SIZE>
void copy_cut(char (&field)[SIZE], std::string_view text) {
  copy_cut(field, SIZE, text);
}

/// Reads a decimal number at `*text`: leading white space, an optional sign, digits. On success
/// stores it, moves `*text` behind it and returns true; a number beyond 32 bits becomes the nearest
/// one within. Without digits returns false and changes nothing.
bool scan_decimal(const char** text, std::int32_t* value);

/// The decimal number at the start of `text`, read like scan_decimal; 0 without digits.
std::int32_t decimal_value(const char* text);

/// Reads up to four decimal numbers separated by full stops into `numbers` (a number that the text
/// does not give stays as it is). Returns how many were read.
int scan_quad(const char* text, std::int32_t (&numbers)[4]);

/// True when the texts are equal without regard to the case of ASCII letters.
[[nodiscard]] bool equals_ignoring_case(const char* a, const char* b);

/// True when `text` begins with `prefix`, without regard to the case of ASCII letters.
[[nodiscard]] bool begins_ignoring_case(const char* text, const char* prefix);

/// White space: space, tab, line feed, vertical tab, form feed and carriage return.
[[nodiscard]] bool is_white_space(char c);

/// Removes trailing white space in place. Always returns 0.
int trim_trailing(char* text);

// Characters and texts without a locale: ASCII is told apart, every other byte is no letter, digit
// or blank. For the modules and the platform layer alike.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

[[nodiscard]] constexpr bool is_digit(char c) { return c >= '0' && c <= '9'; }
[[nodiscard]] constexpr bool is_blank(char c) { return c == ' ' || c == '\t'; }
/// Space, tab, line feed, vertical tab, form feed and carriage return.
[[nodiscard]] constexpr bool is_white_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
/// From the space to "~".
[[nodiscard]] constexpr bool is_printable(char c) { return c >= ' ' && c <= '~'; }
[[nodiscard]] constexpr char lower_case(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

[[nodiscard]] inline std::string lower_cased(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), lower_case);
  return lower;
}

[[nodiscard]] constexpr bool equals_ignoring_case(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return lower_case(x) == lower_case(y); });
}
[[nodiscard]] constexpr bool begins_ignoring_case(std::string_view text, std::string_view prefix) {
  return equals_ignoring_case(text.substr(0, prefix.size()), prefix);
}

/// Copies `text` into a buffer of `size` bytes (at least 1), cut to fit, and terminates it. They
/// may overlap.
inline void copy_cut(char* buffer, std::size_t size, std::string_view text) {
  const std::size_t length = std::min(text.size(), size - 1);
  std::memmove(buffer, text.data(), length);
  buffer[length] = '\0';
}

/// Copies `text` into a fixed field, cut to fit.
template <std::size_t SIZE>
void copy_cut(char (&field)[SIZE], std::string_view text) {
  copy_cut(field, SIZE, text);
}

/// The text in a fixed field of the platform, which may lack its NUL.
template <std::size_t SIZE>
[[nodiscard]] std::string_view field_text(const char (&field)[SIZE]) {
  return {field, static_cast<std::size_t>(std::find(field, field + SIZE, '\0') - field)};
}

/// Cuts the next word, which blanks end, out of a text in place and moves `text` behind the blank
/// that ended it; null when there is none.
[[nodiscard]] inline char* cut_word(char*& text) {
  constexpr char BLANKS[] = " \t";
  char* const word = text + std::strspn(text, BLANKS);
  if (*word == '\0') return nullptr;
  text = word + std::strcspn(word, BLANKS);
  if (*text != '\0') *text++ = '\0';
  return word;
}

#include "shared/include/utils.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace {

bool is_digit(char c) { return c >= '0' && c <= '9'; }

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

}  // namespace

void copy_cut(char* buffer, std::size_t size, std::string_view text) {
  const std::size_t length = std::min(text.size(), size - 1);
  std::memmove(buffer, text.data(), length);
  buffer[length] = '\0';
}

bool scan_decimal(const char** text, std::int32_t* value) {
  using Limits = std::numeric_limits<std::int32_t>;
  const char* at = *text;
  while (is_white_space(*at)) ++at;
  const bool negative = *at == '-';
  if (*at == '-' || *at == '+') ++at;
  if (!is_digit(*at)) return false;
  std::int64_t magnitude = 0;
  for (; is_digit(*at); ++at) {
    magnitude = std::min(magnitude * 10 + (*at - '0'), -std::int64_t{Limits::min()});
  }
  const std::int64_t number = negative ? -magnitude : magnitude;
  *value = static_cast<std::int32_t>(std::min(number, std::int64_t{Limits::max()}));
  *text = at;
  return true;
}

std::int32_t decimal_value(const char* text) {
  std::int32_t value = 0;
  scan_decimal(&text, &value);
  return value;
}

int scan_quad(const char* text, std::int32_t (&numbers)[4]) {
  int count = 0;
  for (std::int32_t& number : numbers) {
    if (count > 0 && *text++ != '.') break;
    if (!scan_decimal(&text, &number)) break;
    ++count;
  }
  return count;
}

bool equals_ignoring_case(const char* a, const char* b) {
  while (*a != '\0' && lower(*a) == lower(*b)) {
    ++a;
    ++b;
  }
  return lower(*a) == lower(*b);
}

bool begins_ignoring_case(const char* text, const char* prefix) {
  while (*prefix != '\0' && lower(*text) == lower(*prefix)) {
    ++text;
    ++prefix;
  }
  return *prefix == '\0';
}

bool is_white_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

int trim_trailing(char* text) {
  std::size_t length = std::strlen(text);
  while (length > 0 && is_white_space(text[length - 1])) --length;
  text[length] = '\0';
  return 0;
}

#include "shared/include/oid.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "base/text.h"
#include "shared/include/vmk_errmsg.h"

namespace {

constexpr std::int32_t GROWTH_STEP = 32;
constexpr std::int32_t MAX_IDS = 65535;
constexpr std::int32_t MAX_ID_TEXT = 12;
constexpr std::int32_t FIRST_TEXT_CAPACITY = 10;

ReportSite here(int line = __builtin_LINE()) { return {".\\oid", line}; }

/// The first position below `n` at which the arrays differ, or `n`.
std::int32_t first_difference(const std::uint32_t* a, const std::uint32_t* b, std::int32_t n) {
  return static_cast<std::int32_t>(std::mismatch(a, a + n, b).first - a);
}

std::int32_t digits_of(std::uint32_t id) {
  std::int32_t digits = 1;
  for (std::uint64_t power = 10; power <= id; power *= 10) ++digits;
  return digits;
}

/// The value of a sub-identifier's text: a sign negates modulo 2 to the 32nd, too large a number
/// becomes the largest.
std::uint32_t id_value(const char* text, const char* end) {
  const bool negative = *text == '-';
  if (negative) ++text;
  std::uint64_t value = 0;
  for (; text < end; ++text) {
    value = value * 10 + static_cast<std::uint64_t>(*text - '0');
  }
  constexpr std::uint64_t LARGEST = std::numeric_limits<std::uint32_t>::max();
  if (value > LARGEST) return static_cast<std::uint32_t>(LARGEST);
  return negative ? static_cast<std::uint32_t>(0 - value) : static_cast<std::uint32_t>(value);
}

}  // namespace

Oid::~Oid() {
  if (ids_ != inline_ids_) std::free(ids_);
  std::free(text_);
  count_ = capacity_ = 0;
}

Oid& Oid::operator=(const Oid& other) {
  if (this == &other) return *this;
  clear();
  append_oid(other);
  return *this;
}

/// Makes room for `n` more sub-identifiers.
void Oid::make_room(std::int32_t n) {
  if (n <= capacity_ - count_) return;
  if (std::int64_t{count_} + n > MAX_IDS) assertion_report(here(), "out of memory");
  // Growth stops at what the counts can express, which is room enough.
  const std::int64_t grown = std::int64_t{capacity_} + std::max(n, GROWTH_STEP);
  const std::int64_t capacity = std::min<std::int64_t>(grown, MAX_IDS);
  void* const block = std::realloc(ids_ != inline_ids_ ? ids_ : nullptr,
                                   static_cast<std::size_t>(capacity) * sizeof *ids_);
  if (block == nullptr) assertion_report(here(), "out of memory");
  auto* const ids = static_cast<std::uint32_t*>(block);
  if (ids_ == inline_ids_) std::copy_n(inline_ids_, INLINE_IDS, ids);
  ids_ = ids;
  capacity_ = static_cast<std::uint16_t>(capacity);
}

void Oid::append(const std::uint32_t* ids, std::int32_t n) {
  if (n <= 0) return;
  // What is appended may be the identifier's own, which growth moves.
  const bool own = ids >= ids_ && ids < ids_ + count_;
  const std::ptrdiff_t at = own ? ids - ids_ : 0;
  make_room(n);
  std::copy_n(own ? ids_ + at : ids, n, ids_ + count_);
  count_ = static_cast<std::uint16_t>(count_ + n);
}

void Oid::append_id(std::uint32_t id) {
  make_room(1);
  ids_[count_++] = id;
}

void Oid::assign_range(const Oid& other, std::int32_t start, std::int32_t end) {
  const std::int32_t last = std::min<std::int32_t>(end, other.count_);
  if (start < 0 || start >= other.count_ || last < start) {
    clear();
  } else if (this == &other) {
    std::copy(ids_ + start, ids_ + last, ids_);
    count_ = static_cast<std::uint16_t>(last - start);
  } else {
    clear();
    append(other.ids_ + start, last - start);
  }
}

// ---- Comparing --------------------------------------------------------------------------------

int Oid::equals(const Oid& other) const {
  const bool equal =
      count_ == other.count_ && std::memcmp(ids_, other.ids_, count_ * sizeof *ids_) == 0;
  return equal ? 1 : 0;
}

int Oid::greater_or_equal(const Oid& other) const {
  const std::int32_t common = std::min(count_, other.count_);
  const std::int32_t at = first_difference(ids_, other.ids_, common);
  const bool result = at < common ? ids_[at] > other.ids_[at] : count_ >= other.count_;
  return result ? 1 : 0;
}

int Oid::compare(const Oid& other, std::int32_t limit) const {
  std::int32_t common = std::min(count_, other.count_);
  if (limit > 0) common = std::min(common, limit);
  const std::int32_t at = first_difference(ids_, other.ids_, common);
  if (at < common) return ids_[at] < other.ids_[at] ? -1 : 1;
  if (count_ == other.count_ || (limit > 0 && common == limit)) return 0;
  return count_ < other.count_ ? -1 : 1;
}

// ---- Text -------------------------------------------------------------------------------------

int oid_text_is_numeric(const char* text) {
  if (*text == '.') ++text;
  return is_digit(*text) ? 1 : 0;
}

int Oid::parse(const char* text) {
  if (*text == '.') ++text;
  while (is_digit(*text) || *text == '-') {
    const char* end = text + 1;
    while (is_digit(*end)) {
      if (end - text == MAX_ID_TEXT) {
        std::fprintf(stderr, "sub-identifier too large: %.*s\n", MAX_ID_TEXT, text);
        return -1;
      }
      ++end;
    }
    append_id(id_value(text, end));
    if (*end != '.') break;
    text = end + 1;
  }
  return 0;
}

void Oid::make_text_room(std::int32_t size) {
  if (text_ != nullptr && size <= text_capacity_) return;
  void* const block = std::realloc(text_, static_cast<std::size_t>(size));
  if (block == nullptr) assertion_report(here(), "not enough memory");
  text_ = static_cast<char*>(block);
  text_capacity_ = size;
}

const char* Oid::to_text() {
  if (text_ == nullptr) make_text_room(FIRST_TEXT_CAPACITY);
  // Each sub-identifier is followed by a full stop, and the last one of those gives way to the NUL.
  std::int32_t size = 1;
  for (std::int32_t i = 0; i < count_; ++i) size += digits_of(ids_[i]) + 1;
  make_text_room(size);
  char* to = text_;
  for (std::int32_t i = 0; i < count_; ++i) {
    to = std::to_chars(to, text_ + text_capacity_, ids_[i]).ptr;
    *to++ = '.';
  }
  if (count_ > 0) --to;
  *to = '\0';
  text_length_ = static_cast<std::int32_t>(to - text_);
  return text_;
}

const char* Oid::to_octets() {
  const std::int32_t size = std::max<std::int32_t>(count_, 1);
  make_text_room(size);
  for (std::int32_t i = 1; i < count_; ++i) text_[i - 1] = static_cast<char>(ids_[i] & 0xFF);
  text_[size - 1] = '\0';
  text_length_ = size - 1;
  return text_;
}

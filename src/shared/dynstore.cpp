#include "shared/include/dynstore.h"

#include <algorithm>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <limits>

#include "base/text.h"

namespace {

constexpr std::int64_t GROWTH_STEP = 1024;

ReportSite here(int line = __builtin_LINE()) { return {".\\dynstore", line}; }

std::size_t size_of(std::int64_t count) { return static_cast<std::size_t>(count); }

/// The decimal text of a number.
struct Digits {
  char text[24];
  std::int32_t length;

  template <typename Number>
  explicit Digits(Number number)
      : length(static_cast<std::int32_t>(std::to_chars(text, text + sizeof text, number).ptr -
                                         text)) {}
};

std::int32_t text_length(const char* text) {
  const std::size_t length = std::strlen(text);
  if (length > size_of(std::numeric_limits<std::int32_t>::max())) {
    assertion_report(here(), "out of memory");
  }
  return static_cast<std::int32_t>(length);
}

/// A formatted text, cut to fit.
struct Formatted {
  char text[DYNSTORE_FORMAT_SIZE];

  [[gnu::format(printf, 2, 0)]] Formatted(const char* format, std::va_list arguments) {
    text[0] = '\0';
    static_cast<void>(std::vsnprintf(text, sizeof text, format, arguments));
  }
};

}  // namespace

DynStore::DynStore(const MemoryOperations& memory) : memory_(memory) { inline_area_[0] = '\0'; }

DynStore::~DynStore() {
  if (buffer_ != inline_area_) memory_.release(buffer_);
}

void DynStore::clear() {
  offset_ = end_ = 0;
  buffer_[0] = '\0';
}

void DynStore::dump() const {
  std::fprintf(stderr, "  params: offset=%d, len=%d, alloc=%d\n  str = \"%s\"\n",
               static_cast<int>(offset_), static_cast<int>(end_), static_cast<int>(alloc_), str());
}

/// Moves the text to a block with room for `required` bytes from its start; with `front_room`, that
/// many more in front of the text, which then begins there.
void DynStore::grow(std::int64_t required, std::int64_t front_room) {
  const std::int64_t new_offset = front_room > 0 ? front_room : offset_;
  const std::int64_t size = std::max(required + front_room, alloc_ + GROWTH_STEP);
  char* block = size <= std::numeric_limits<std::int32_t>::max()
                    ? static_cast<char*>(memory_.allocate(size_of(size)))
                    : nullptr;
  if (block == nullptr) assertion_report(here(), "out of memory");
  std::memcpy(block + new_offset, str(), size_of(length()) + 1);
  if (buffer_ != inline_area_) memory_.release(buffer_);
  buffer_ = block;
  alloc_ = static_cast<std::int32_t>(size);
  offset_ = static_cast<std::int32_t>(new_offset);
}

// ---- Appending and prepending -----------------------------------------------------------------

int DynStore::append(const void* bytes, std::int32_t count) {
  const std::int64_t new_end = std::int64_t{end_} + count;
  if (new_end >= alloc_) grow(new_end + 1, 0);
  std::memcpy(buffer_ + end_, bytes, size_of(count));
  end_ = static_cast<std::int32_t>(new_end);
  buffer_[end_] = '\0';
  return 0;
}

int DynStore::prepend(const void* bytes, std::int32_t count) {
  if (offset_ >= count) {
    offset_ -= count;
  } else {
    const std::int64_t total = std::int64_t{length()} + count;
    const std::int32_t kept_front = offset_;
    if (total < alloc_) {
      std::memmove(buffer_ + count, str(), size_of(length()) + 1);
      offset_ = 0;
    } else {
      grow(total + 1, std::int64_t{kept_front} + count);
      offset_ = kept_front;
    }
    end_ = static_cast<std::int32_t>(offset_ + total);
  }
  std::memcpy(buffer_ + offset_, bytes, size_of(count));
  return 0;
}

int DynStore::append_str(const char* text) { return append(text, text_length(text)); }

int DynStore::append_int64(std::int64_t number) {
  const Digits digits(number);
  return append(digits.text, digits.length);
}

int DynStore::prepend_str(const char* text) { return prepend(text, text_length(text)); }

int DynStore::prepend_int64(std::int64_t number) {
  const Digits digits(number);
  return prepend(digits.text, digits.length);
}

// ---- Removing ---------------------------------------------------------------------------------

int DynStore::erase(std::int32_t position, std::int32_t count) {
  if (position < 0 || std::int64_t{position} + count > length()) return -1;
  char* const at = buffer_ + offset_ + position;
  std::memmove(at, at + count, size_of(length() - position - count) + 1);
  end_ -= count;
  return 0;
}

int DynStore::drop_front(std::int32_t count) {
  if (count > length()) return -1;
  offset_ += count;
  return 0;
}

int DynStore::drop_back(std::int32_t count) {
  if (count > length()) return -1;
  end_ -= count;
  buffer_[end_] = '\0';
  return 0;
}

int DynStore::trim_leading_blanks() {
  while (offset_ < end_ && is_blank(buffer_[offset_])) ++offset_;
  return 0;
}

int DynStore::trim_trailing_blanks() {
  while (offset_ < end_ && is_blank(buffer_[end_ - 1])) --end_;
  buffer_[end_] = '\0';
  return 0;
}

// ---- Formatting -------------------------------------------------------------------------------

int DynStore::set_format(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const Formatted formatted(format, arguments);
  va_end(arguments);
  clear();
  return append_str(formatted.text);
}

int DynStore::append_format(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const Formatted formatted(format, arguments);
  va_end(arguments);
  return append_str(formatted.text);
}

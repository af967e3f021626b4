// A growable text that can be extended at both ends. Texts of up to 1023 characters live inside the
// object and allocate nothing.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/not_copied.h"
#include "shared/include/vmk_errmsg.h"

constexpr int DYNSTORE_INLINE_SIZE = 1024;
constexpr int DYNSTORE_FORMAT_SIZE = 16384;

/// The text is always NUL-terminated. Results are 0 for success and -1 for a refused request, which
/// changes nothing. When memory runs out the process ends with an assertion report. Texts handed in
/// must not lie inside the store.
class DynStore : NotCopied {
 public:
  /// An empty text. Blocks come from the `allocate` of `memory` and go to its `release`.
  explicit DynStore(const MemoryOperations& memory = STANDARD_MEMORY);
  ~DynStore();

  /// Empties the text and keeps the buffer.
  void clear();

  [[nodiscard]] const char* str() const { return buffer_ + offset_; }
  [[nodiscard]] std::int32_t length() const { return end_ - offset_; }
  [[nodiscard]] std::int32_t offset() const { return offset_; }
  [[nodiscard]] std::int32_t capacity() const { return alloc_; }

  /// Writes offset, end, capacity and text to standard error.
  void dump() const;

  int append(const void* bytes, std::int32_t count);
  int append_str(const char* text);
  int append_int(std::int32_t number) { return append_int64(number); }
  int append_uint(std::uint32_t number) { return append_int64(number); }
  int append_long(std::int32_t number) { return append_int64(number); }
  int append_ulong(std::uint32_t number) { return append_int64(number); }
  int append_int64(std::int64_t number);
  int append_char(char c) { return append(&c, 1); }

  int prepend(const void* bytes, std::int32_t count);
  int prepend_str(const char* text);
  int prepend_int(std::int32_t number) { return prepend_int64(number); }
  int prepend_uint(std::uint32_t number) { return prepend_int64(number); }
  int prepend_long(std::int32_t number) { return prepend_int64(number); }
  int prepend_ulong(std::uint32_t number) { return prepend_int64(number); }
  int prepend_int64(std::int64_t number);
  int prepend_char(char c) { return prepend(&c, 1); }

  /// Remove `count` characters: from `position` on, from the front, from the end. Refused when the
  /// text has not that many there.
  int erase(std::int32_t position, std::int32_t count);
  int drop_front(std::int32_t count);
  int drop_back(std::int32_t count);

  /// Remove spaces and tabs. Always 0.
  int trim_leading_blanks();
  int trim_trailing_blanks();

  /// Replace the text by, or append, a formatted text of at most DYNSTORE_FORMAT_SIZE - 1
  /// characters; printf conventions.
  [[gnu::format(printf, 2, 3)]] int set_format(const char* format, ...);
  [[gnu::format(printf, 2, 3)]] int append_format(const char* format, ...);

 private:
  void grow(std::int64_t required, std::int64_t front_room);

  char inline_area_[DYNSTORE_INLINE_SIZE];
  char* buffer_ = inline_area_;
  std::int32_t offset_ = 0;
  std::int32_t end_ = 0;
  std::int32_t alloc_ = DYNSTORE_INLINE_SIZE;
  MemoryOperations memory_;
};

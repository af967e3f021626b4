// Object identifiers: sequences of up to 65535 unsigned 32-bit sub-identifiers, written as dotted
// decimal text such as 1.3.6.1.2.1. Up to 32 of them live inside the object.
#pragma once

#include <cstddef>
#include <cstdint>

/// When memory runs out the process ends with an assertion report.
class Oid {
 public:
  static constexpr std::int32_t INLINE_IDS = 32;

  Oid() = default;
  Oid(const std::uint32_t* ids, std::int32_t n) { append(ids, n); }
  explicit Oid(std::uint32_t id) { append_id(id); }
  Oid(const Oid& other) { append_oid(other); }
  Oid& operator=(const Oid& other);
  ~Oid();

  [[nodiscard]] std::int32_t length() const { return count_; }
  [[nodiscard]] std::int32_t capacity() const { return capacity_; }

  /// The sub-identifier at an index, which must not be negative; 0 beyond the end.
  [[nodiscard]] std::uint32_t at(std::int32_t index) const {
    return index < count_ ? ids_[index] : 0;
  }

  /// Empties the identifier and keeps its storage.
  void clear() { count_ = 0; }

  void append(const std::uint32_t* ids, std::int32_t n);
  void append_id(std::uint32_t id);
  void append_oid(const Oid& other) { append(other.ids_, other.count_); }

  /// Becomes the other's sub-identifiers from `start` up to but not including `end`, which is cut
  /// to the other's length; empty when there is no such range.
  void assign_range(const Oid& other, std::int32_t start, std::int32_t end);

  /// 1 when both have the same sub-identifiers, else 0.
  [[nodiscard]] int equals(const Oid& other) const;

  /// 1 when this one does not come before the other in lexicographic order, else 0.
  [[nodiscard]] int greater_or_equal(const Oid& other) const;

  /// Compares at most the first `limit` positions (0: all of them): -1, 0 or 1.
  [[nodiscard]] int compare(const Oid& other, std::int32_t limit) const;

  /// Appends the sub-identifiers of a dotted text, as far as it is one. 0, or -1 at a
  /// sub-identifier of over 12 characters, which is told on standard error.
  int parse(const char* text);

  /// The identifier as text, and as a length-prefixed octet string: the low bytes of all but the
  /// first sub-identifier, then a NUL. Both stand in the object until its next conversion.
  const char* to_text();
  const char* to_octets();
  [[nodiscard]] std::int32_t text_length() const { return text_length_; }

 private:
  void make_room(std::int32_t n);
  void make_text_room(std::int32_t size);

  std::uint16_t count_ = 0;
  std::uint16_t capacity_ = INLINE_IDS;
  std::uint32_t* ids_ = inline_ids_;
  std::uint32_t inline_ids_[INLINE_IDS];
  char* text_ = nullptr;
  std::int32_t text_capacity_ = 0;
  std::int32_t text_length_ = 0;
};

/// 1 when the text, after one optional ".", begins with a decimal digit, else 0.
[[nodiscard]] int oid_text_is_numeric(const char* text);

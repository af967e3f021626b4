#pragma once

#include <cstdint>

/// The state that something is in, as a number that grows with each change. What is made from it
/// keeps the generation that it was made from, and is current while the two are equal. 0 is the
/// generation of nothing.
class Generation {
 public:
  void advance() { ++number_; }
  bool operator==(const Generation&) const = default;

  /// The generation that something begins with.
  [[nodiscard]] static Generation first() {
    Generation generation;
    generation.advance();
    return generation;
  }

 private:
  std::uint64_t number_ = 0;
};

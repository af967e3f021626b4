// What goes wrong in a run: one kind of thing, once or for ever.
#pragma once

#include <cstdint>

enum class Treatment : std::uint8_t {
  MEMORY,        ///< an allocation fails
  FAIL,          ///< a call of the platform answers a code
  RAISE,         ///< it faults: the one call that the tool guards
  GROWN,         ///< a fetch of a table or value says that it needs more room than was asked for
  SHRUNK,        ///< a fetch gives half of what was there when its size was asked
  CUT,           ///< a table claims more rows than it has bytes for
  UNTERMINATED,  ///< texts fill their fields, or claim to be longer; a list of strings has no end
};

/// Counts the places where the treatment makes a difference and says which of them it strikes.
struct Disturbance {
  Treatment treatment = Treatment::MEMORY;
  std::uint64_t nth = 0;         ///< the first that is struck, 1 for the next one; 0: none
  bool lasting = false;          ///< every later one too
  std::uint64_t* met = nullptr;  ///< how many were struck; whoever arms it owns the count
  bool armed = false;
  std::uint64_t places = 0;  ///< so far

  /// Whether it strikes here, where treatment `by` could.
  [[nodiscard]] bool strikes(Treatment by);
};

/// The one of this process. Stands before anything allocates.
extern Disturbance disturbance;

// What may come of a session that was put to the torture, and what may not.
#pragma once

#include <string>
#include <vector>

/// What a session did: all that it wrote, standard output and standard error in the order of
/// writing, and how it ended (the status of wait).
struct Outcome {
  std::string text;
  int status = 0;
};

/// What may stop the program for want of memory: what the module calls itself, and why.
struct Stop {
  std::string module;
  std::string reason;
};

[[nodiscard]] std::vector<Stop> read_stops(const std::string& path);

/// The position in the list of the place that stopped a session, or the length of the list.
[[nodiscard]] std::size_t find_stop(const std::string& text, const std::vector<Stop>& stops);

/// What went wrong in a session.
enum class Disturbed {
  NOTHING,
  A_CALL,   ///< memory or the platform failed: an address that nobody lists is spoken of
  A_TABLE,  ///< the platform lied: addresses of the tool's own may seem to be gone
};

/// Why a session broke what the tool promises, or empty. Held against what it does when nothing
/// fails. `stops`: places that may end it, none when memory does not fail.
[[nodiscard]] std::string find_fault(const Outcome& outcome, const std::string& undisturbed,
                                     const std::vector<Stop>& stops, Disturbed disturbed);

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

/// What a disturbance excuses.
struct Tolerance {
  bool quiet_change;  ///< another answer that does not tell of a failure
  bool lost_claims;   ///< an address of the tool's that the platform said was gone
};

/// Why a session in which nothing failed is not like the undisturbed one, or empty.
[[nodiscard]] std::string find_difference(const Outcome& outcome, const std::string& undisturbed);

/// Why the session broke what the tool promises, or empty. Compares with what the session does when
/// nothing fails. `stops`: places that may end it, none when memory does not fail.
[[nodiscard]] std::string find_fault(const Outcome& outcome, const std::string& undisturbed,
                                     const std::vector<Stop>& stops, Tolerance tolerance);

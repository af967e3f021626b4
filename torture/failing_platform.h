// A platform that fails and lies on demand. Failures come from a host of its own; lies come from
// functions that the link puts before the layer's (see CMakeLists.txt).
#pragma once

#include <cstdint>

#include "platform/hosts/simulated_host.h"
#include "torture/schedule.h"

/// What a call of the layer does instead of what it should.
enum class Treatment : std::uint8_t {
  FAIL,          ///< answers a code
  RAISE,         ///< faults: the one call that the tool guards
  GROWN,         ///< a fetch of a table or value says that it needs more room than was asked for
  SHRUNK,        ///< a fetch gives half of what was there when its size was asked
  CUT,           ///< a table claims more rows than it has bytes for
  UNTERMINATED,  ///< texts fill their fields, or claim to be longer; a list of strings has no end
};

/// From now on it is this that is done to calls.
void choose_treatment(Treatment treatment);

/// Says which of the calls are treated, of those to whose answer the treatment makes a difference.
[[nodiscard]] Schedule& treated_calls();

/// The simulated host whose calls are treated.
class FailingHost final : public SimulatedHost {
 public:
  using SimulatedHost::SimulatedHost;

  [[nodiscard]] std::optional<ScriptedFault> next_fault(std::string_view function) override;
};

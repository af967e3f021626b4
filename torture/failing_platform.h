// A platform that fails and lies on demand. Failures come from a host of its own; lies come from
// functions that the link puts before the layer's (see CMakeLists.txt).
#pragma once

#include <cstdint>

#include "platform/simulated_host.h"

/// What a call of the layer does instead of what it should.
enum class Treatment : std::uint8_t {
  FAIL,          ///< answers a code
  RAISE,         ///< faults: the one call that the tool guards
  GROWN,         ///< a fetch of a table or value says that it needs more room than was asked for
  SHRUNK,        ///< a fetch gives half of what was there when its size was asked
  CUT,           ///< a table claims more rows than it has bytes for; a list of strings has no end
  UNTERMINATED,  ///< the texts fill their fields, or say that they are longer than these
};

/// From now on the `nth` call that can be treated so is, and with `lasting` set every later one
/// too. Each is counted in `treated`, which the caller keeps.
void treat_call(Treatment treatment, std::uint64_t nth, bool lasting, std::uint64_t& treated);

/// While it lives, the platform works, and its calls are not counted.
class WorkingPlatform {
 public:
  WorkingPlatform();
  ~WorkingPlatform();
  WorkingPlatform(const WorkingPlatform&) = delete;
  WorkingPlatform& operator=(const WorkingPlatform&) = delete;

 private:
  bool before_;
};

/// The simulated host whose calls are treated.
class FailingHost final : public SimulatedHost {
 public:
  using SimulatedHost::SimulatedHost;

  [[nodiscard]] std::optional<ScriptedFault> next_fault(Call call) override;
};

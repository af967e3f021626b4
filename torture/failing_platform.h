// A platform that fails and lies as the disturbance says. Failures come from a host of its own;
// lies come from functions that the link puts before the layer's (see CMakeLists.txt).
#pragma once

#include "platform/simulated/simulated_host.h"

/// The simulated host whose calls fail.
class FailingHost final : public SimulatedHost {
 public:
  using SimulatedHost::SimulatedHost;

  [[nodiscard]] std::optional<ScriptedFault> next_fault(std::string_view function) override;
};

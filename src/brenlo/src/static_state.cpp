// The objects that exist before the entry runs, in the order of their construction. They are
// destroyed in the reverse order at exit, so that the log outlives all but the first record.

#include "brenlo/src/static_state.h"

#include <exception>

#include "brenlo/src/brenlocfg.h"
#include "shared/include/shared_state.h"

namespace {

/// Nothing is thrown but for want of memory. Where nobody answers to that, as before the entry
/// runs, the program ends as it does for every other condition that it cannot survive.
[[noreturn]] void stop_without_memory() {
  assertion_report({".\\kadrix", __LINE__}, "out of memory");
}

[[maybe_unused]] const std::terminate_handler before = std::set_terminate(stop_without_memory);

}  // namespace

DebugModule kadrix_debug(".\\kadrix");
namespace {
SharedState shared_state;
}  // namespace
DebugModule system_debug(".\\system");
DebugModule adapter_debug(".\\adapter");
DebugModule utils_debug(".\\utils");
DebugModule address_debug(".\\address");
DebugModule brenlocfg_debug(".\\brenlocfg");

namespace {
ExclusionList exclusion_list;
}  // namespace

ExclusionList* excluded_adapters = &exclusion_list;

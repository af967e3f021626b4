// The objects that exist before the entry runs, in the order of their construction. They are
// destroyed in the reverse order at exit, so that the log outlives all but the first record.

#include "brenlo/src/static_state.h"

#include "brenlo/src/brenlocfg.h"
#include "shared/include/shared_state.h"

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

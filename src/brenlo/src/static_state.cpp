// The objects that exist before the entry runs, in the order of their construction. They are
// destroyed in the reverse order at exit, so that the log outlives all but the first record.

#include "brenlo/src/brenlocfg.h"
#include "shared/include/searchpath.h"
#include "shared/include/vmk_debug.h"
#include "shared/include/vmk_errmsg.h"

DebugModule kadrix_debug(".\\kadrix");
MessageLog message_log(STANDARD_MEMORY);
DebugModule searchpath_debug(".\\searchpath");
namespace {
SearchPath process_search_path;
}  // namespace
SearchPath* search_path = &process_search_path;
DebugModule shared_utils_debug(".\\utils");
DebugModule system_debug(".\\system");
DebugModule adapter_debug(".\\adapter");
DebugModule utils_debug(".\\utils");
DebugModule address_debug(".\\address");
DebugModule brenlocfg_debug(".\\brenlocfg");

namespace {
ExclusionList exclusion_list;
}  // namespace

ExclusionList* excluded_adapters = &exclusion_list;

#include "shared/include/shared_state.h"

MessageLog* message_log = nullptr;
SearchPath* search_path = nullptr;
DebugModule* searchpath_debug = nullptr;
DebugModule* shared_utils_debug = nullptr;

SharedState::SharedState()
    : log(STANDARD_MEMORY), searchpath_record(".\\searchpath"), utils_record(".\\utils") {
  message_log = &log;
  search_path = &path;
  searchpath_debug = &searchpath_record;
  shared_utils_debug = &utils_record;
}

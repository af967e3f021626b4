// What the shared modules keep for the whole process: the message log, the search path and their
// debug records.
#pragma once

#include "base/not_copied.h"
#include "shared/include/searchpath.h"
#include "shared/include/vmk_debug.h"
#include "shared/include/vmk_errmsg.h"

/// Made once, before anything reports; its parts are made in this order and destroyed in the
/// reverse one. The modules reach them through `message_log`, `search_path` and the pointers below.
struct SharedState : NotCopied {
  SharedState();

  MessageLog log;
  DebugModule searchpath_record;
  SearchPath path;
  DebugModule utils_record;
};

/// The records of the search path and of the shared utilities; null until the state is made.
extern DebugModule* searchpath_debug;
extern DebugModule* shared_utils_debug;

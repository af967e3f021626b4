#include "shared/include/vmk_debug.h"

#include <cstring>

#include "shared/include/vmk_errmsg.h"

namespace {

ReportSite here(int line = __builtin_LINE()) { return {".\\vmk_debug", line}; }

DebugQuestion installed_table = nullptr;

}  // namespace

void install_debug_table(DebugQuestion question) { installed_table = question; }

DebugModule::DebugModule(const char* source_path) {
  const char* backslash = std::strrchr(source_path, '\\');
  const char* base = backslash != nullptr ? backslash + 1 : source_path;
  name_ = copy_or_stop(base, here(), "not enough memory for debug subsystem");
}

bool DebugModule::is_enabled(std::int32_t line) const {
  return installed_table != nullptr && installed_table(name(), line);
}

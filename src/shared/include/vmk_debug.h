// Per-module debug records. A debug site asks its module's record, with its own source line, before
// it reports; the record answers from the debug table installed for the process, "off" without one.
#pragma once

#include <cstdint>

#include "base/not_copied.h"
#include "shared/include/text_block.h"

/// The question that an installed table answers: are the debug sites of this module at this line
/// on?
using DebugQuestion = bool (*)(const char* module, std::int32_t line);

/// Installs the table that answers for every module from now on; null takes it away.
void install_debug_table(DebugQuestion question);

/// The record of one source module. Owns a copy of the module's name.
class DebugModule : NotCopied {
 public:
  /// `source_path`: the module's own path; the part after its last backslash is its name.
  /// Without memory for the name the process ends with an assertion report.
  explicit DebugModule(const char* source_path);
  ~DebugModule() = default;

  [[nodiscard]] bool is_enabled(std::int32_t line) const;
  [[nodiscard]] const char* name() const { return name_.get(); }

 private:
  TextBlock name_;
};

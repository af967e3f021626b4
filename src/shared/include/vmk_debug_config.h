// The debug configuration: a text file "config/debug.cfg" on the product's search path that
// switches debug sites on by module and line. A line names a module and, after a blank, a line
// number; without one every debug site of the module is on. "#" at the start makes a comment.
//
// When memory runs out the process ends with an assertion report.
#pragma once

#include <cstdint>
#include <cstdio>
#include <list>
#include <memory>

#include "base/not_copied.h"
#include "shared/include/text_block.h"

/// The wildcard among line numbers.
constexpr std::int32_t ALL_LINES = -1;

class DebugObject : NotCopied {
 public:
  DebugObject() = default;
  virtual ~DebugObject() { magic_ = 0; }

  /// True from construction until destruction.
  [[nodiscard]] virtual bool is_valid() const { return magic_ == VALID; }

  /// Writes the object to standard error.
  virtual void dump() const = 0;

 private:
  static constexpr std::uint32_t VALID = 0xDEADBEEF;
  // Written at the end of the object's life, for whoever still looks at it.
  volatile std::uint32_t magic_ = VALID;
};

/// One module's line numbers, in the order read.
class DebugModuleEntry : public DebugObject {
 public:
  explicit DebugModuleEntry(const char* name);

  void dump() const override;

  [[nodiscard]] const char* name() const { return name_.get(); }
  [[nodiscard]] bool has_line(std::int32_t line) const;
  void add_line(std::int32_t line);

 private:
  std::int32_t wildcard_line_ = ALL_LINES;
  TextBlock name_;
  std::list<std::int32_t> lines_;
};

class DebugModuleTable : public DebugObject {
 public:
  void dump() const override;

  /// Reads a configuration in place of what the table holds. 0 at the end of the stream; -1,
  /// reported and not flushed, at a line without a word: what was read before it stays.
  virtual int load(std::FILE* stream);

  /// True when the table has the module with this line or with every line.
  [[nodiscard]] bool is_enabled(const char* module, std::int32_t line) const;

 private:
  [[nodiscard]] DebugModuleEntry& entry_of(const char* module);

  std::list<std::unique_ptr<DebugModuleEntry>> entries_;
};

/// The table of the whole process; takes itself away from the modules when it is destroyed.
class RuntimeDebugTable : public DebugModuleTable {
 public:
  ~RuntimeDebugTable() override;
};

/// Reads "config/debug.cfg" from the search path into the process-wide table and installs it for
/// every module. Without such a file nothing is installed, and the search path's report stays held.
/// Before the program's static state stands nothing is done. Always returns 0.
extern "C" int dll_init_debug();

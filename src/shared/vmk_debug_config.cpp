#include "shared/include/vmk_debug_config.h"

#include <algorithm>
#include <cstring>

#include "shared/include/searchpath.h"
#include "shared/include/utils.h"
#include "shared/include/vmk_debug.h"
#include "shared/include/vmk_errmsg.h"

namespace {

constexpr char CONFIGURATION[] = "config/debug.cfg";
constexpr char OUT_OF_MEMORY[] = "out of memory for debug subsystem";
constexpr int PIECE_SIZE = 1024;

ReportSite here(int line = __builtin_LINE()) { return {".\\vmk_debug", line}; }

std::int32_t line_counter = 0;

}  // namespace

// ---- Entries ----------------------------------------------------------------------------------

DebugModuleEntry::DebugModuleEntry(const char* name)
    : name_(copy_or_stop(name, here(), "not enough memory for debug subsystem")) {}

void DebugModuleEntry::dump() const {
  for (const std::int32_t line : lines_) std::fprintf(stderr, "%d ", static_cast<int>(line));
}

bool DebugModuleEntry::has_line(std::int32_t line) const {
  return std::ranges::any_of(
      lines_, [=, this](std::int32_t it) { return it == wildcard_line_ || it == line; });
}

void DebugModuleEntry::add_line(std::int32_t line) {
  with_memory(here(), OUT_OF_MEMORY, [&] { lines_.push_back(line); });
}

// ---- Table ------------------------------------------------------------------------------------

void DebugModuleTable::dump() const {
  if (entries_.empty()) return;
  std::fputs("DEBUG Debugging\n", stderr);
  for (const auto& entry : entries_) {
    std::fprintf(stderr, " module %s:", entry->name());
    entry->dump();
    std::fputs("\n", stderr);
  }
}

bool DebugModuleTable::is_enabled(const char* module, std::int32_t line) const {
  return std::ranges::any_of(entries_, [=](const auto& entry) {
    return std::strcmp(entry->name(), module) == 0 && entry->has_line(line);
  });
}

DebugModuleEntry& DebugModuleTable::entry_of(const char* module) {
  for (const auto& entry : entries_) {
    if (std::strcmp(entry->name(), module) == 0) return *entry;
  }
  with_memory(here(), OUT_OF_MEMORY,
              [&] { entries_.push_back(std::make_unique<DebugModuleEntry>(module)); });
  return *entries_.back();
}

int DebugModuleTable::load(std::FILE* stream) {
  entries_.clear();
  char piece[PIECE_SIZE];
  for (line_counter = 1; std::fgets(piece, sizeof piece, stream) != nullptr; ++line_counter) {
    if (*piece == '#') continue;
    if (char* end = std::strrchr(piece, '\n')) {
      // As everywhere, a carriage return before the line's end goes with it.
      if (end > piece && end[-1] == '\r') --end;
      *end = '\0';
    }
    char* rest = piece;
    const char* const module = cut_word(rest);
    if (module == nullptr)
      return report(BEGIN_ERROR, here(), "error at line %d\n", static_cast<int>(line_counter));
    const char* const number = cut_word(rest);
    entry_of(module).add_line(number != nullptr ? decimal_value(number) : ALL_LINES);
  }
  return 0;
}

RuntimeDebugTable::~RuntimeDebugTable() { install_debug_table(nullptr); }

// ---- Initialisation ---------------------------------------------------------------------------

namespace {

RuntimeDebugTable& process_table() {
  static RuntimeDebugTable table;
  return table;
}

bool ask_process_table(const char* module, std::int32_t line) {
  return process_table().is_enabled(module, line);
}

void load_by_path(DebugModuleTable& table, const char* path) {
  const File stream = open_for_reading(path, "r");
  if (stream == nullptr) {
    std::perror("fopen failed");
    report(WRITE_ERROR, here(), "debugging disabled, continuing...");
  } else if (table.load(stream.get()) < 0) {
    report(CLOSE_ERROR, here(), "error loading runtime debugging, continuing...");
  }
}

}  // namespace

int dll_init_debug() {
  if (!search_path_stands()) return 0;  // called before the program's static state was made
  RuntimeDebugTable& table = process_table();
  char path[PATH_BUFFER_SIZE];
  if (search_path->resolve(CONFIGURATION, path, SEARCH_ALL) == nullptr) return 0;
  load_by_path(table, path);
  install_debug_table(ask_process_table);
  return 0;
}

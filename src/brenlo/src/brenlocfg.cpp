#include "brenlo/src/brenlocfg.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "shared/include/utils.h"
#include "shared/include/vmk_errmsg.h"
#include "shared/include/zarvoparser.h"

namespace {

constexpr std::int32_t HARDWARE_ADDRESS_SIZE = 6;

ReportSite here(int line = __builtin_LINE()) { return {".\\brenlocfg", line}; }

}  // namespace

template <typename Match>
int ExclusionList::any(Match match) const {
  return std::ranges::any_of(entries_, [&](const auto& it) { return match(*it); }) ? 1 : 0;
}

int ExclusionList::excludes_name(const char* name) const {
  const std::size_t name_length = std::strlen(name);
  return any([=](const ExclusionEntry& entry) {
    const std::size_t length = std::min(name_length, static_cast<std::size_t>(entry.length));
    return entry.kind == EXCLUDED_NAME && std::memcmp(entry.value, name, length) == 0;
  });
}

int ExclusionList::excludes_address(const std::uint8_t (&hardware_address)[6]) const {
  return any([&](const ExclusionEntry& entry) {
    const auto length = static_cast<std::size_t>(std::min(entry.length, HARDWARE_ADDRESS_SIZE));
    return entry.kind == EXCLUDED_ADDRESS &&
           std::memcmp(entry.value, hardware_address, length) == 0;
  });
}

void ExclusionList::append(std::unique_ptr<ExclusionEntry> entry) {
  with_memory(here(), "out of memory", [&] { entries_.push_back(std::move(entry)); });
}

namespace {

std::unique_ptr<ExclusionEntry> make_entry(ExclusionKind kind, const char* text) {
  std::unique_ptr<ExclusionEntry> entry(new (std::nothrow) ExclusionEntry);
  if (entry == nullptr) assertion_report(here(), "out of memory");
  entry->kind = kind;
  entry->length = static_cast<std::int32_t>(std::strlen(text));
  copy_cut(entry->value, text);
  return entry;
}

}  // namespace

int ExclusionList::load(const char* path) {
  const File stream = open_for_reading(path, "r");
  if (stream == nullptr) {
    begin_system_error(here(), "fopen");
    return report(ADD_WARN, here(), "cannot open file %s.", path);
  }
  ConfigFile file;
  if (file.read(stream.get()) != 0)
    return report(ADD_WARN, here(), "cannot load data from %s.", path);
  for (std::uint32_t i = 0; i < file.block_count(); ++i) load_block(path, file, i);
  return 0;
}

void ExclusionList::load_block(const char* path, const ConfigFile& file, std::uint32_t index) {
  const int number = static_cast<int>(index) + 1;
  if (std::strcmp(file.block_name(index), "exclude") != 0) {
    report(WRITE_ERROR, here(), "unknown block[%d] %s found in %s", number, file.block_name(index),
           path);
    return;
  }
  const char* const address = file.value(index, "address");
  const bool has_address = address != nullptr && *address != '\0';
  const char* const text = has_address ? address : file.value(index, "name");
  if (text == nullptr || *text == '\0') {
    report(WRITE_ERROR, here(), "empty exclude block[%d] found in %s", number, path);
    return;
  }
  if (fits_in(text, sizeof ExclusionEntry{}.value) == 0) {
    report(WRITE_ERROR, here(), "value of exclude block[%d] too long in %s", number, path);
    return;
  }
  auto entry = make_entry(has_address ? EXCLUDED_ADDRESS : EXCLUDED_NAME, text);
  if (has_address && hex_to_bytes(entry->value, entry->length) != 0) {
    errmsg_flush();
    return;
  }
  append(std::move(entry));
}

int ExclusionList::clear() {
  entries_.clear();
  return 0;
}

#include "brenlo/src/brenlocfg.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "shared/include/vmk_errmsg.h"

namespace {

constexpr std::int32_t HARDWARE_ADDRESS_SIZE = 6;

ReportSite here(int line = __builtin_LINE()) { return {".\\brenlocfg", line}; }

}  // namespace

template <typename Match>
int ExclusionList::any(Match match) const {
  for (const Link* link = ends_.next; link != &ends_; link = link->next) {
    if (match(*static_cast<const Node*>(link)->entry)) return 1;
  }
  return 0;
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
  auto* node = new (std::nothrow) Node;
  if (node == nullptr) assertion_report(here(), "out of memory");
  node->entry = std::move(entry);
  node->previous = ends_.previous;
  node->next = &ends_;
  node->previous->next = node;
  ends_.previous = node;
  ++count_;
}

int ExclusionList::clear() {
  for (Link* link = ends_.next; link != &ends_;) {
    Link* const next = link->next;
    delete static_cast<Node*>(link);
    link = next;
  }
  ends_ = {&ends_, &ends_};
  count_ = 0;
  return 0;
}

#include "shared/include/text_block.h"

#include <cstring>

TextBlock copy_or_stop(const char* text, ReportSite site, const char* reason) {
  const std::size_t size = std::strlen(text) + 1;
  TextBlock copy(static_cast<char*>(std::malloc(size)));
  if (copy == nullptr) assertion_report(site, "%s", reason);
  std::memcpy(copy.get(), text, size);
  return copy;
}

bool resize(TextBlock& block, std::size_t size) {
  void* const resized = std::realloc(block.get(), size);
  if (resized == nullptr) return false;
  static_cast<void>(block.release());
  block.reset(static_cast<char*>(resized));
  return true;
}

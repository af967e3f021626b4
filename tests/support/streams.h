// Streams over texts, for what reads and writes files.
#pragma once

#include <cstdlib>
#include <string>
#include <string_view>

#include "shared/include/utils.h"
#include "shared/include/zarvoparser.h"

/// A stream that reads a text, which must outlive it.
inline File stream_of(std::string_view text) {
  if (text.empty()) return {std::fopen("/dev/null", "r"), std::fclose};
  return {fmemopen(const_cast<char*>(text.data()), text.size(), "r"), std::fclose};
}

/// What a configuration writes.
inline std::string written(const ConfigFile& file) {
  char* text = nullptr;
  std::size_t size = 0;
  file.write(File(open_memstream(&text, &size), std::fclose).get());
  std::string copy(text, size);
  std::free(text);
  return copy;
}

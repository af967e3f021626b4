// The fuzz targets by name: one for each reader of bytes from outside, and one for whole sessions,
// whose first byte chooses the host and whose others are typed at the prompt. Each takes an input,
// checks what must hold for every input, and ends the process when it does not.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

using FuzzTarget = void (*)(const std::uint8_t* data, std::size_t size);

extern const std::map<std::string, FuzzTarget> FUZZ_TARGETS;

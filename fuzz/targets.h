// The fuzz targets: one for each reader of bytes from outside, and one for whole sessions, whose
// first byte chooses the host and whose others are typed at the prompt. Each takes an input, checks
// what must hold for every input, and ends the process when it does not.
#pragma once

#include <cstddef>
#include <cstdint>

void fuzz_config(const std::uint8_t* data, std::size_t size);
void fuzz_exclusion(const std::uint8_t* data, std::size_t size);
void fuzz_shortcut(const std::uint8_t* data, std::size_t size);
void fuzz_debug_config(const std::uint8_t* data, std::size_t size);
void fuzz_hex(const std::uint8_t* data, std::size_t size);
void fuzz_ranges(const std::uint8_t* data, std::size_t size);
void fuzz_description(const std::uint8_t* data, std::size_t size);
void fuzz_session(const std::uint8_t* data, std::size_t size);

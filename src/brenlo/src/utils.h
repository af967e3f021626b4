// Registry access: values of keys under HKEY_LOCAL_MACHINE. Every failure begins a new message in
// the log at level ERROR, without a flush, and gives -1; the key is closed in every case.
#pragma once

#include <cstddef>
#include <cstdint>

/// Reads a value of any type as raw bytes. `capacity`: the buffer's size in bytes; a value that
/// needs more is a failure. With a null buffer only stores the value's size in `capacity`.
/// No terminator is added; `capacity` is not changed by a read.
[[nodiscard]] int read_registry_value(const char* key_path, const char* value_name, void* buffer,
                                      std::int32_t* capacity);

/// Reads the first string of a REG_MULTI_SZ value, terminated. `capacity`: the buffer's size in
/// bytes, terminator included. With a null buffer only stores the value's size in `capacity`.
[[nodiscard]] int read_first_multi_sz(const char* key_path, const char* value_name, char* buffer,
                                      std::uint32_t* capacity);

/// Writes `size` bytes, a list with its final extra NUL, as a REG_MULTI_SZ value; creates the key
/// when it does not exist.
[[nodiscard]] int write_multi_sz_value(const char* key_path, const char* value_name,
                                       const void* data, std::uint32_t size);

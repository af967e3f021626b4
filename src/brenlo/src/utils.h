// Registry access: values of keys under HKEY_LOCAL_MACHINE, and the keys of an adapter. Every
// failure begins a new message in the log at level ERROR, without a flush, and gives -1; the key is
// closed in every case.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <type_traits>

#include "shared/include/text_block.h"

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

struct KeyCloser {
  void operator()(HKEY key) const { RegCloseKey(key); }
};
using RegistryKey = std::unique_ptr<std::remove_pointer_t<HKEY>, KeyCloser>;

/// Opens a key; null, unreported, when it cannot be opened.
[[nodiscard]] RegistryKey open_key(const char* path, REGSAM access);

/// A registry key path made by a format; printf conventions. Cut to 2,047 characters.
struct KeyPath {
  char text[2048];

  [[gnu::format(printf, 2, 3)]] KeyPath(const char* format, ...);
};

/// The two keys that may hold an adapter's TCP/IP parameters, in the order in which they are tried.
struct ParameterKeys {
  KeyPath choices[2];

  explicit ParameterKeys(const char* adapter);
};

/// A list of strings as a REG_MULTI_SZ value holds it, in a buffer of 200,200 bytes followed by
/// NULs that end any list.
class StringList {
 public:
  StringList();

  [[nodiscard]] bool allocated() const { return text_ != nullptr; }
  [[nodiscard]] const char* data() const { return text_.get(); }
  [[nodiscard]] static const char* after(const char* string) {
    return string + std::strlen(string) + 1;
  }

  /// See read_registry_value.
  [[nodiscard]] int read(const char* key_path, const char* value_name);

  /// Adds a string; false when it and the list's final NUL do not fit.
  [[nodiscard]] bool add(const char* string);

  /// The bytes of the strings added, each with its NUL, and of the final NUL.
  [[nodiscard]] std::uint32_t size() const { return static_cast<std::uint32_t>(used_ + 1); }

 private:
  TextBlock text_;
  std::size_t used_ = 0;
};

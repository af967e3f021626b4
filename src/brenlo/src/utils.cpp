#include "brenlo/src/utils.h"

#include <windows.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "shared/include/vmk_errmsg.h"

namespace {

constexpr int LIST_SIZE = 200200;

ReportSite here(int line = __builtin_LINE()) { return {".\\utils", line}; }

int fail_open(ReportSite site, const char* key_path) {
  return report(BEGIN_ERROR, site, "Cannot open key <%s>", key_path);
}

int fail_size(ReportSite site, const char* key_path, const char* value_name) {
  return report(BEGIN_ERROR, site, "Insufficient buffer for <%s\\%s>", key_path, value_name);
}

/// A value's bytes in a block of exactly its size; null after a reported failure.
std::unique_ptr<BYTE[]> read_bytes(const RegistryKey& key, const char* key_path,
                                   const char* value_name, DWORD size) {
  std::unique_ptr<BYTE[]> bytes(new (std::nothrow) BYTE[size]);
  if (bytes == nullptr) {
    report(BEGIN_ERROR, here(), "Out of memory.");
    return nullptr;
  }
  DWORD read = size;
  if (RegQueryValueExA(key.get(), value_name, nullptr, nullptr, bytes.get(), &read) !=
      ERROR_SUCCESS) {
    report(BEGIN_ERROR, here(), "Cannot read <%s\\%s>", key_path, value_name);
    return nullptr;
  }
  // A value that shrank since its size was asked: what is no longer there reads as NULs.
  if (read < size) std::memset(bytes.get() + read, 0, size - read);
  return bytes;
}

bool create_key(const char* path) {
  HKEY key = nullptr;
  return RegCreateKeyExA(HKEY_LOCAL_MACHINE, path, 0, nullptr, REG_OPTION_NON_VOLATILE,
                         KEY_ALL_ACCESS, nullptr, &key, nullptr) == ERROR_SUCCESS &&
         RegistryKey(key) != nullptr;
}

int set_multi_sz(const RegistryKey& key, const char* key_path, const char* value_name,
                 const void* data, std::uint32_t size) {
  if (RegSetValueExA(key.get(), value_name, 0, REG_MULTI_SZ, static_cast<const BYTE*>(data),
                     size) == ERROR_SUCCESS) {
    return 0;
  }
  return report(BEGIN_ERROR, here(), "Cannot set <%s\\%s>", key_path, value_name);
}

}  // namespace

RegistryKey open_key(const char* path, REGSAM access) {
  HKEY key = nullptr;
  const bool opened = RegOpenKeyExA(HKEY_LOCAL_MACHINE, path, 0, access, &key) == ERROR_SUCCESS;
  return RegistryKey(opened ? key : nullptr);
}

int read_registry_value(const char* key_path, const char* value_name, void* buffer,
                        std::int32_t* capacity) {
  const RegistryKey key = open_key(key_path, KEY_QUERY_VALUE);
  if (key == nullptr) return fail_open(here(), key_path);
  DWORD size = 0;
  if (RegQueryValueExA(key.get(), value_name, nullptr, nullptr, nullptr, &size) != ERROR_SUCCESS) {
    size = 0;
  }
  if (buffer == nullptr) {
    *capacity = static_cast<std::int32_t>(size);
    return 0;
  }
  if (*capacity < 0 || static_cast<DWORD>(*capacity) < size) {
    return fail_size(here(), key_path, value_name);
  }
  const auto bytes = read_bytes(key, key_path, value_name, size);
  if (bytes == nullptr) return -1;
  std::memcpy(buffer, bytes.get(), size);
  return 0;
}

int read_first_multi_sz(const char* key_path, const char* value_name, char* buffer,
                        std::uint32_t* capacity) {
  const RegistryKey key = open_key(key_path, KEY_QUERY_VALUE);
  if (key == nullptr) return fail_open(here(), key_path);
  DWORD type = REG_NONE;
  DWORD size = 0;
  if (RegQueryValueExA(key.get(), value_name, nullptr, &type, nullptr, &size) != ERROR_SUCCESS ||
      type != REG_MULTI_SZ) {
    return report(BEGIN_ERROR, here(), "<%s\\%s> is not a REG_MULTI_SZ key", key_path, value_name);
  }
  if (buffer == nullptr) {
    *capacity = size;
    return 0;
  }
  const auto bytes = read_bytes(key, key_path, value_name, size);
  if (bytes == nullptr) return -1;
  const auto* end = static_cast<const BYTE*>(std::memchr(bytes.get(), 0, size));
  const std::size_t length = end != nullptr ? static_cast<std::size_t>(end - bytes.get()) : size;
  if (length >= *capacity) return fail_size(here(), key_path, value_name);
  std::memcpy(buffer, bytes.get(), length);
  buffer[length] = '\0';
  return 0;
}

int write_multi_sz_value(const char* key_path, const char* value_name, const void* data,
                         std::uint32_t size) {
  RegistryKey key = open_key(key_path, KEY_SET_VALUE);
  if (key == nullptr && !create_key(key_path))
    return report(BEGIN_ERROR, here(), "Cannot create key <%s>", key_path);
  if (key == nullptr) key = open_key(key_path, KEY_SET_VALUE);
  if (key == nullptr) return fail_open(here(), key_path);
  return set_multi_sz(key, key_path, value_name, data, size);
}

// ---- Adapters' keys and lists -----------------------------------------------------------------

KeyPath::KeyPath(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
}

ParameterKeys::ParameterKeys(const char* adapter)
    : choices{{"SYSTEM\\CurrentControlSet\\Services\\Tcpip\\Parameters\\Interfaces\\%s", adapter},
              {"SYSTEM\\CurrentControlSet\\Services\\%s\\Parameters\\Tcpip", adapter}} {}

StringList::StringList() : text_(static_cast<char*>(std::calloc(LIST_SIZE + 2, 1))) {}

int StringList::read(const char* key_path, const char* value_name) {
  std::int32_t capacity = LIST_SIZE;
  return read_registry_value(key_path, value_name, text_.get(), &capacity);
}

bool StringList::add(const char* string) {
  const std::size_t size = std::strlen(string) + 1;
  if (used_ + size + 1 > LIST_SIZE) return false;
  std::memcpy(text_.get() + used_, string, size);
  used_ += size;
  return true;
}

// Stands in for advapi32: the registry and the user.

#include <windows.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <optional>
#include <string>
#include <utility>

#include "platform/host/calls.h"
#include "platform/host/host.h"

namespace {

/// An open key; HKEY points to it, but for the predefined one.
struct OpenKey {
  std::string path;
  REGSAM access;
  /// The value whose size was given last, with its name: the next call gets that very value,
  /// whatever others changed in between.
  std::optional<std::pair<std::string, RegistryValue>> sized = {};
};

OpenKey* opened(HKEY key) { return reinterpret_cast<OpenKey*>(key); }

std::string full_path(HKEY key, LPCSTR sub_key) {
  std::string path = key == HKEY_LOCAL_MACHINE ? std::string() : opened(key)->path;
  if (sub_key == nullptr || *sub_key == '\0') return path;
  if (!path.empty()) path += '\\';
  return path += sub_key;
}

DWORD give_key(std::string path, REGSAM access, PHKEY result) {
  auto* key = new (std::nothrow) OpenKey{std::move(path), access};
  if (key == nullptr) return ERROR_NOT_ENOUGH_MEMORY;
  *result = reinterpret_cast<HKEY>(key);
  return ERROR_SUCCESS;
}

LSTATUS status(DWORD code) { return static_cast<LSTATUS>(code); }

}  // namespace

LSTATUS WINAPI RegOpenKeyExA(HKEY key, LPCSTR sub_key, DWORD /*options*/, REGSAM access,
                             PHKEY result) {
  return status(run_returning_code("RegOpenKeyExA", [=]() -> DWORD {
    std::string path = full_path(key, sub_key);
    if (const DWORD code = current_host().find_key(path); code != NO_ERROR) return code;
    return give_key(std::move(path), access, result);
  }));
}

LSTATUS WINAPI RegCreateKeyExA(HKEY key, LPCSTR sub_key, DWORD /*reserved*/, LPSTR /*key_class*/,
                               DWORD /*options*/, REGSAM access, void* /*security*/, PHKEY result,
                               LPDWORD /*disposition*/) {
  return status(run_returning_code("RegCreateKeyExA", [=]() -> DWORD {
    std::string path = full_path(key, sub_key);
    const DWORD created = current_host().create_key(path);
    if (created != NO_ERROR) return created;
    return give_key(std::move(path), access, result);
  }));
}

LSTATUS WINAPI RegQueryValueExA(HKEY key, LPCSTR value, LPDWORD /*reserved*/, LPDWORD type,
                                LPBYTE data, LPDWORD size) {
  return status(run_returning_code("RegQueryValueExA", [=]() -> DWORD {
    if ((opened(key)->access & KEY_QUERY_VALUE) == 0) return ERROR_ACCESS_DENIED;
    const auto sized = std::exchange(opened(key)->sized, std::nullopt);
    const RegistryValue* found = nullptr;
    if (data != nullptr && sized && sized->first == value) {
      found = &sized->second;
    } else {
      const DWORD code = current_host().find_value(opened(key)->path, value, found);
      if (code != NO_ERROR) return code;
    }
    if (type != nullptr) *type = found->type;
    if (size == nullptr) return data == nullptr ? ERROR_SUCCESS : ERROR_INVALID_PARAMETER;
    const DWORD room = *size;
    *size = static_cast<DWORD>(found->data.size());
    if (data == nullptr) {
      opened(key)->sized.emplace(value, *found);
      return ERROR_SUCCESS;
    }
    if (room < *size) return ERROR_MORE_DATA;
    std::copy(found->data.begin(), found->data.end(), data);
    return ERROR_SUCCESS;
  }));
}

LSTATUS WINAPI RegSetValueExA(HKEY key, LPCSTR value, DWORD /*reserved*/, DWORD type,
                              const BYTE* data, DWORD size) {
  return status(run_returning_code("RegSetValueExA", [=]() -> DWORD {
    if ((opened(key)->access & KEY_SET_VALUE) == 0) return ERROR_ACCESS_DENIED;
    RegistryValue set{type, std::string(reinterpret_cast<const char*>(data), size)};
    return current_host().set_value(opened(key)->path, value, std::move(set));
  }));
}

LSTATUS WINAPI RegCloseKey(HKEY key) {
  const auto code = scripted_failure("RegCloseKey");
  if (key != HKEY_LOCAL_MACHINE) delete opened(key);
  return code ? status(*code) : ERROR_SUCCESS;
}

BOOL WINAPI GetUserNameA(LPSTR buffer, LPDWORD size) {
  return run_setting_last_error<BOOL>("GetUserNameA", [=]() -> BOOL {
    const std::string& name = current_host().user_name();
    const DWORD room = *size;
    *size = static_cast<DWORD>(name.size() + 1);
    if (room < *size) return set_last_error<BOOL>(ERROR_INSUFFICIENT_BUFFER);
    std::memcpy(buffer, name.c_str(), *size);
    return TRUE;
  });
}

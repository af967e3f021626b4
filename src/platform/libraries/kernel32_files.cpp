// Stands in for kernel32: directories and files. A path that begins with a drive letter means the
// path of this machine without it, and a backslash is a slash: C:\tmp\a stands for /tmp/a.

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include <windows.h>

#include "platform/host/calls.h"

namespace {

std::string machine_path(std::string_view path) {
  const auto is_letter = [](char c) { return (c | 0x20) >= 'a' && (c | 0x20) <= 'z'; };
  if (path.size() >= 2 && path[1] == ':' && is_letter(path[0])) path.remove_prefix(2);
  std::string text(path);
  std::replace(text.begin(), text.end(), '\\', '/');
  return text;
}

/// Answers a text in the way of the platform's text functions: its length, or, when the buffer is
/// too small, the size that it needs.
DWORD give_text(std::string_view text, LPSTR buffer, DWORD size) {
  const auto length = static_cast<DWORD>(text.size());
  if (length + 1 > size) return length + 1;
  text.copy(buffer, text.size());
  buffer[length] = '\0';
  return length;
}

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

/// Gives the next entry; false at the end.
bool read_entry(DIR* directory, LPWIN32_FIND_DATAA data) {
  static_assert(sizeof data->cFileName >= sizeof dirent{}.d_name);
  const dirent* entry = readdir(directory);
  if (entry == nullptr) return false;
  *data = {};
  std::memcpy(data->cFileName, entry->d_name, std::strlen(entry->d_name));
  return true;
}

}  // namespace

UINT WINAPI GetSystemDirectoryA(LPSTR buffer, UINT size) {
  return run_setting_last_error<UINT>(
      "GetSystemDirectoryA", [=] { return give_text("C:\\WINDOWS\\system32", buffer, size); });
}

DWORD WINAPI GetCurrentDirectoryA(DWORD size, LPSTR buffer) {
  return run_setting_last_error<DWORD>("GetCurrentDirectoryA", [=] {
    const std::unique_ptr<char, void (*)(void*)> path(getcwd(nullptr, 0), std::free);
    return path != nullptr ? give_text(path.get(), buffer, size)
                           : set_last_error<DWORD>(ERROR_PATH_NOT_FOUND);
  });
}

/// For functions that know no drives: a path that is not full stands for itself.
DWORD WINAPI GetFullPathNameA(LPCSTR path, DWORD size, LPSTR full_path, LPSTR* /*file_part*/) {
  return run_setting_last_error<DWORD>(
      "GetFullPathNameA", [=] { return give_text(machine_path(path), full_path, size); });
}

DWORD WINAPI GetLongPathNameA(LPCSTR path, LPSTR long_path, DWORD size) {
  return run_setting_last_error<DWORD>("GetLongPathNameA", [=] {
    const std::string text = machine_path(path);
    const bool exists = access(text.c_str(), F_OK) == 0;
    return exists ? give_text(text, long_path, size) : set_last_error<DWORD>(ERROR_FILE_NOT_FOUND);
  });
}

HANDLE WINAPI FindFirstFileA(LPCSTR pattern, LPWIN32_FIND_DATAA data) {
  const auto search = [=]() -> HANDLE {
    const auto fail = [](DWORD code) { return set_last_error<HANDLE>(code, INVALID_HANDLE_VALUE); };
    constexpr std::string_view EVERYTHING = "/*.*";
    std::string path = machine_path(pattern);
    if (!path.ends_with(EVERYTHING)) return fail(ERROR_NOT_SUPPORTED);
    path.resize(path.size() - EVERYTHING.size());
    path += '/';
    Directory directory(opendir(path.c_str()));
    if (directory == nullptr) return fail(ERROR_PATH_NOT_FOUND);
    if (!read_entry(directory.get(), data)) return fail(ERROR_FILE_NOT_FOUND);
    return directory.release();
  };
  return run_setting_last_error<HANDLE>("FindFirstFileA", search, INVALID_HANDLE_VALUE);
}

BOOL WINAPI FindNextFileA(HANDLE find, LPWIN32_FIND_DATAA data) {
  return run_setting_last_error<BOOL>("FindNextFileA", [=] {
    return read_entry(static_cast<DIR*>(find), data) ? TRUE
                                                     : set_last_error<BOOL>(ERROR_NO_MORE_FILES);
  });
}

BOOL WINAPI FindClose(HANDLE find) {
  return run_setting_last_error<BOOL>("FindClose", [=] {
    closedir(static_cast<DIR*>(find));
    return TRUE;
  });
}

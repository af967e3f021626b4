// Stands in for kernel32: directories and files. A path that begins with a drive letter means the
// path of this machine without it, and a backslash is a slash: C:\tmp\a stands for /tmp/a.

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include <windows.h>

#include "platform/hosts/calls.h"
#include "platform/hosts/errno_keeper.h"

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

DWORD fail(DWORD code) {
  SetLastError(code);
  return 0;
}

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

/// Gives the next entry that fits a record; false at the end.
bool read_entry(DIR* directory, LPWIN32_FIND_DATAA data) {
  while (const dirent* entry = readdir(directory)) {
    const std::size_t size = std::strlen(entry->d_name) + 1;
    if (size > sizeof data->cFileName) continue;
    *data = {};
    std::memcpy(data->cFileName, entry->d_name, size);
    return true;
  }
  return false;
}

}  // namespace

UINT WINAPI GetSystemDirectoryA(LPSTR buffer, UINT size) {
  if (const auto code = scripted_failure(Call::GET_SYSTEM_DIRECTORY)) return fail(*code);
  return give_text("C:\\WINDOWS\\system32", buffer, size);
}

DWORD WINAPI GetCurrentDirectoryA(DWORD size, LPSTR buffer) {
  const ErrnoKeeper keeper;
  if (const auto code = scripted_failure(Call::GET_CURRENT_DIRECTORY)) return fail(*code);
  const std::unique_ptr<char, void (*)(void*)> path(getcwd(nullptr, 0), std::free);
  if (path == nullptr) return fail(ERROR_PATH_NOT_FOUND);
  return give_text(path.get(), buffer, size);
}

/// For functions that know no drives: a path that is not full stands for itself.
DWORD WINAPI GetFullPathNameA(LPCSTR path, DWORD size, LPSTR full_path, LPSTR* /*file_part*/) {
  return leaving_code(DWORD{0}, [=] {
    if (const auto code = scripted_failure(Call::GET_FULL_PATH_NAME)) return fail(*code);
    return give_text(machine_path(path), full_path, size);
  });
}

DWORD WINAPI GetLongPathNameA(LPCSTR path, LPSTR long_path, DWORD size) {
  return leaving_code(DWORD{0}, [=] {
    if (const auto code = scripted_failure(Call::GET_LONG_PATH_NAME)) return fail(*code);
    const std::string text = machine_path(path);
    struct stat status;
    if (stat(text.c_str(), &status) != 0) return fail(ERROR_FILE_NOT_FOUND);
    return give_text(text, long_path, size);
  });
}

HANDLE WINAPI FindFirstFileA(LPCSTR pattern, LPWIN32_FIND_DATAA data) {
  const auto refuse = [](DWORD code) {
    SetLastError(code);
    return INVALID_HANDLE_VALUE;
  };
  return leaving_code(INVALID_HANDLE_VALUE, [=]() -> HANDLE {
    if (const auto code = scripted_failure(Call::FIND_FIRST_FILE)) return refuse(*code);
    std::string path = machine_path(pattern);
    if (!path.ends_with("/*.*")) return refuse(ERROR_NOT_SUPPORTED);
    path.resize(path.size() - std::strlen("*.*"));
    Directory directory(opendir(path.c_str()));
    if (directory == nullptr) return refuse(ERROR_PATH_NOT_FOUND);
    if (!read_entry(directory.get(), data)) return refuse(ERROR_FILE_NOT_FOUND);
    return directory.release();
  });
}

BOOL WINAPI FindNextFileA(HANDLE find, LPWIN32_FIND_DATAA data) {
  const ErrnoKeeper keeper;
  if (const auto code = scripted_failure(Call::FIND_NEXT_FILE)) {
    SetLastError(*code);
    return FALSE;
  }
  if (read_entry(static_cast<DIR*>(find), data)) return TRUE;
  SetLastError(ERROR_NO_MORE_FILES);
  return FALSE;
}

BOOL WINAPI FindClose(HANDLE find) {
  const ErrnoKeeper keeper;
  if (const auto code = scripted_failure(Call::FIND_CLOSE)) {
    SetLastError(*code);
    return FALSE;
  }
  const Directory directory(static_cast<DIR*>(find));
  return TRUE;
}

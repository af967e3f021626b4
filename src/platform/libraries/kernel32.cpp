// Stands in for kernel32: errors, libraries, version, memory, time, texts.

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "platform/hosts/calls.h"
#include "platform/hosts/errno_keeper.h"
#include "platform/hosts/host.h"
#include "platform/libraries/error_texts.h"
#include "platform/libraries/library_functions.h"

namespace {

DWORD last_error = NO_ERROR;

/// A library; HMODULE points to it.
struct Library {
  const char* name;
};

Library libraries[] = {{"iphlpapi"}, {"dhcpcsvc"}, {"kernel32"}, {"ws2_32"}, {"wship6"}};

/// The name in lower case without directory and ".dll", as hosts know libraries.
std::string plain_library_name(std::string_view name) {
  std::string plain(name.substr(name.find_last_of('\\') + 1));
  std::transform(plain.begin(), plain.end(), plain.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  if (plain.ends_with(".dll")) plain.resize(plain.size() - 4);
  return plain;
}

}  // namespace

DWORD WINAPI GetLastError() {
  if (const auto code = scripted_failure(Call::GET_LAST_ERROR)) return *code;
  return last_error;
}

void WINAPI SetLastError(DWORD code) { last_error = code; }

DWORD WINAPI FormatMessageA(DWORD flags, LPCVOID /*source*/, DWORD message_id,
                            DWORD /*language_id*/, LPSTR buffer, DWORD size, void* /*arguments*/) {
  if (const auto code = scripted_failure(Call::FORMAT_MESSAGE)) {
    SetLastError(*code);
    return 0;
  }
  const char* text = (flags & FORMAT_MESSAGE_FROM_SYSTEM) != 0 ? error_text(message_id) : nullptr;
  if (text == nullptr) {
    SetLastError(ERROR_MR_MID_NOT_FOUND);
    return 0;
  }
  const std::size_t length = std::strlen(text);
  if (length + 3 > size) {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return 0;
  }
  std::memcpy(buffer, text, length + 1);
  std::memcpy(buffer + length, "\r\n", 3);
  return static_cast<DWORD>(length + 2);
}

HMODULE WINAPI LoadLibraryA(LPCSTR name) {
  return leaving_code(HMODULE{nullptr}, [=]() -> HMODULE {
    if (const auto code = scripted_failure(Call::LOAD_LIBRARY)) {
      SetLastError(*code);
      return nullptr;
    }
    const std::string plain = plain_library_name(name);
    if (current_host().has_library(plain)) {
      for (Library& library : libraries) {
        if (plain == library.name) return reinterpret_cast<HMODULE>(&library);
      }
    }
    SetLastError(ERROR_MOD_NOT_FOUND);
    return nullptr;
  });
}

FARPROC WINAPI GetProcAddress(HMODULE library, LPCSTR name) {
  if (const auto code = scripted_failure(Call::GET_PROC_ADDRESS)) {
    SetLastError(*code);
    return nullptr;
  }
  if (library == nullptr) {
    SetLastError(ERROR_INVALID_HANDLE);
    return nullptr;
  }
  const char* library_name = reinterpret_cast<const Library*>(library)->name;
  if (current_host().has_function(library_name, name)) {
    if (const FARPROC function = library_function(library_name, name)) return function;
  }
  SetLastError(ERROR_PROC_NOT_FOUND);
  return nullptr;
}

BOOL WINAPI FreeLibrary(HMODULE /*library*/) {
  if (const auto code = scripted_failure(Call::FREE_LIBRARY)) {
    SetLastError(*code);
    return FALSE;
  }
  return TRUE;
}

BOOL WINAPI GetVersionExA(LPOSVERSIONINFOA information) {
  if (const auto code = scripted_failure(Call::GET_VERSION_EX)) {
    SetLastError(*code);
    return FALSE;
  }
  if (information->dwOSVersionInfoSize != sizeof *information) {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return FALSE;
  }
  const HostVersion& version = current_host().version();
  information->dwPlatformId = version.platform_id;
  information->dwMajorVersion = version.major;
  information->dwMinorVersion = version.minor;
  constexpr std::size_t LONGEST = sizeof information->szCSDVersion - 1;
  information->szCSDVersion[version.service_pack.copy(information->szCSDVersion, LONGEST)] = '\0';
  return TRUE;
}

void WINAPI GlobalMemoryStatus(LPMEMORYSTATUS status) {
  *status = {};
  status->dwLength = sizeof *status;
  if (scripted_failure(Call::GLOBAL_MEMORY_STATUS)) return;
  const ErrnoKeeper keeper;
  std::FILE* file = std::fopen("/proc/meminfo", "r");
  if (file == nullptr) return;
  char line[128];
  while (std::fgets(line, sizeof line, file) != nullptr) {
    unsigned long kilobytes = 0;
    if (std::sscanf(line, "MemTotal: %lu", &kilobytes) == 1) {
      status->dwTotalPhys = SIZE_T{kilobytes} * 1024;
    } else if (std::sscanf(line, "MemAvailable: %lu", &kilobytes) == 1) {
      status->dwAvailPhys = SIZE_T{kilobytes} * 1024;
    } else if (std::sscanf(line, "SwapTotal: %lu", &kilobytes) == 1) {
      status->dwTotalPageFile = SIZE_T{kilobytes} * 1024;
    } else if (std::sscanf(line, "SwapFree: %lu", &kilobytes) == 1) {
      status->dwAvailPageFile = SIZE_T{kilobytes} * 1024;
    }
  }
  std::fclose(file);
}

void WINAPI Sleep(DWORD milliseconds) {
  const ErrnoKeeper keeper;
  if (!scripted_failure(Call::SLEEP)) current_host().sleep(milliseconds);
}

/// The hosts' code page is Latin-1: each byte is the character of its own number.
int WINAPI MultiByteToWideChar(UINT /*code_page*/, DWORD /*flags*/, LPCSTR text, int length,
                               LPWSTR wide, int wide_size) {
  if (const auto code = scripted_failure(Call::MULTI_BYTE_TO_WIDE_CHAR)) {
    SetLastError(*code);
    return 0;
  }
  const std::size_t count = length < 0 ? std::strlen(text) + 1 : static_cast<std::size_t>(length);
  if (wide_size == 0) return static_cast<int>(count);
  if (count > static_cast<std::size_t>(wide_size)) {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return 0;
  }
  std::transform(text, text + count, wide,
                 [](char c) { return static_cast<WCHAR>(static_cast<unsigned char>(c)); });
  return static_cast<int>(count);
}

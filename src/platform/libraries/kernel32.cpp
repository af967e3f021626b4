// Stands in for kernel32: errors, libraries, version, time, texts.

#include <windows.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "base/find.h"
#include "base/text.h"
#include "platform/host/calls.h"
#include "platform/host/host.h"
#include "platform/libraries/error_texts.h"

namespace {

DWORD last_error = NO_ERROR;

/// A library; HMODULE points to it.
struct LoadableLibrary {
  const char* name;
};

LoadableLibrary libraries[] = {{"iphlpapi"}, {"dhcpcsvc"}, {"kernel32"}, {"ws2_32"}, {"wship6"}};

/// The name in lower case without directory and ".dll", as hosts know libraries.
std::string plain_library_name(std::string_view name) {
  std::string plain = lower_cased(name.substr(name.find_last_of('\\') + 1));
  if (plain.ends_with(".dll")) plain.resize(plain.size() - 4);
  return plain;
}

}  // namespace

DWORD WINAPI GetLastError() {
  const auto code = scripted_failure("GetLastError");
  return code ? *code : last_error;
}

void WINAPI SetLastError(DWORD code) { last_error = code; }

DWORD WINAPI FormatMessageA(DWORD flags, LPCVOID /*source*/, DWORD message_id,
                            DWORD /*language_id*/, LPSTR buffer, DWORD size, void* /*arguments*/) {
  return run_setting_last_error<DWORD>("FormatMessageA", [=]() -> DWORD {
    const char* text = (flags & FORMAT_MESSAGE_FROM_SYSTEM) != 0 ? error_text(message_id) : nullptr;
    if (text == nullptr) return set_last_error<DWORD>(ERROR_MR_MID_NOT_FOUND);
    constexpr char LINE_END[] = "\r\n";
    const std::string_view words = text;
    if (words.size() + sizeof LINE_END > size)
      return set_last_error<DWORD>(ERROR_INSUFFICIENT_BUFFER);
    words.copy(buffer, words.size());
    std::memcpy(buffer + words.size(), LINE_END, sizeof LINE_END);
    return static_cast<DWORD>(words.size() + std::strlen(LINE_END));
  });
}

HMODULE WINAPI LoadLibraryA(LPCSTR name) {
  return run_setting_last_error<HMODULE>("LoadLibraryA", [=]() -> HMODULE {
    const std::string plain = plain_library_name(name);
    auto* const found = find_with(libraries, plain, &LoadableLibrary::name);
    if (found == nullptr || !current_host().has_library(plain)) {
      return set_last_error<HMODULE>(ERROR_MOD_NOT_FOUND);
    }
    return reinterpret_cast<HMODULE>(found);
  });
}

FARPROC WINAPI GetProcAddress(HMODULE library, LPCSTR name) {
  return run_setting_last_error<FARPROC>("GetProcAddress", [=]() -> FARPROC {
    if (library == nullptr) return set_last_error<FARPROC>(ERROR_INVALID_HANDLE);
    const char* library_name = reinterpret_cast<const LoadableLibrary*>(library)->name;
    const Function* const function = find_function(name);
    if (function == nullptr || !function->is_in(library_name) ||
        !current_host().has_function(library_name, name)) {
      return set_last_error<FARPROC>(ERROR_PROC_NOT_FOUND);
    }
    return function->address();
  });
}

BOOL WINAPI FreeLibrary(HMODULE /*library*/) {
  return run_setting_last_error<BOOL>("FreeLibrary", [] { return TRUE; });
}

BOOL WINAPI GetVersionExA(LPOSVERSIONINFOA information) {
  return run_setting_last_error<BOOL>("GetVersionExA", [=]() -> BOOL {
    if (information->dwOSVersionInfoSize != sizeof *information) {
      return set_last_error<BOOL>(ERROR_INSUFFICIENT_BUFFER);
    }
    const HostVersion& version = current_host().version();
    information->dwMajorVersion = version.major;
    information->dwMinorVersion = version.minor;
    information->dwPlatformId = version.platform_id;
    char(&text)[sizeof information->szCSDVersion] = information->szCSDVersion;
    text[version.service_pack.copy(text, sizeof text - 1)] = '\0';
    return TRUE;
  });
}

void WINAPI Sleep(DWORD milliseconds) {
  const ErrnoKeeper keeper;
  if (!scripted_failure("Sleep")) current_host().sleep(milliseconds);
}

/// The hosts' code page is Latin-1: each byte is the character of its own number.
int WINAPI MultiByteToWideChar(UINT /*code_page*/, DWORD /*flags*/, LPCSTR text, int length,
                               LPWSTR wide, int wide_size) {
  return run_setting_last_error<int>("MultiByteToWideChar", [=] {
    const int count = length < 0 ? static_cast<int>(std::strlen(text)) + 1 : length;
    if (wide_size == 0) return count;
    if (count > wide_size) return set_last_error<int>(ERROR_INSUFFICIENT_BUFFER);
    std::transform(text, text + count, wide,
                   [](char c) { return static_cast<WCHAR>(static_cast<unsigned char>(c)); });
    return count;
  });
}

// The part of the Windows API that the modules use, for targets that are not Windows: types with
// the platform's widths, codes with its values, functions with its names. What stands behind the
// functions is the platform layer.
#pragma once

#include <cstddef>
#include <cstdint>

#define WINAPI
#define CALLBACK

// NOLINTBEGIN(modernize-use-using,cppcoreguidelines-macro-usage): the platform's own spelling
extern "C" {

typedef std::uint8_t BYTE;
typedef std::uint16_t WORD;
typedef std::uint32_t DWORD;
typedef std::uint32_t ULONG;
typedef std::uint32_t UINT;
typedef std::int32_t LONG;
typedef std::int32_t INT;
typedef std::int32_t BOOL;
typedef char16_t WCHAR;
typedef std::intptr_t INT_PTR;
typedef void* PVOID;
typedef void* LPVOID;
typedef const void* LPCVOID;
typedef void* HANDLE;
typedef BYTE* LPBYTE;
typedef DWORD* LPDWORD;
typedef DWORD* PDWORD;
typedef ULONG* PULONG;
typedef char* LPSTR;
typedef const char* LPCSTR;
typedef WCHAR* LPWSTR;
typedef const WCHAR* LPCWSTR;
typedef DWORD REGSAM;
typedef LONG LSTATUS;

typedef struct HINSTANCE__* HMODULE;
typedef struct HKEY__* HKEY;
typedef HKEY* PHKEY;
typedef INT_PTR(WINAPI* FARPROC)();

#define FALSE 0
#define TRUE 1

// Error codes.
#define NO_ERROR 0
#define ERROR_SUCCESS 0
#define ERROR_FILE_NOT_FOUND 2
#define ERROR_PATH_NOT_FOUND 3
#define ERROR_TOO_MANY_OPEN_FILES 4
#define ERROR_ACCESS_DENIED 5
#define ERROR_INVALID_HANDLE 6
#define ERROR_NOT_ENOUGH_MEMORY 8
#define ERROR_INVALID_DATA 13
#define ERROR_OUTOFMEMORY 14
#define ERROR_NO_MORE_FILES 18
#define ERROR_NOT_SUPPORTED 50
#define ERROR_DEV_NOT_EXIST 55
#define ERROR_UNEXP_NET_ERR 59
#define ERROR_INVALID_PARAMETER 87
#define ERROR_BROKEN_PIPE 109
#define ERROR_BUFFER_OVERFLOW 111
#define ERROR_CALL_NOT_IMPLEMENTED 120
#define ERROR_INSUFFICIENT_BUFFER 122
#define ERROR_MOD_NOT_FOUND 126
#define ERROR_PROC_NOT_FOUND 127
#define ERROR_BUSY 170
#define ERROR_NO_DATA 232
#define ERROR_MORE_DATA 234
#define ERROR_MR_MID_NOT_FOUND 317
#define ERROR_NOT_FOUND 1168
#define ERROR_RETRY 1237
#define ERROR_NO_SYSTEM_RESOURCES 1450
#define ERROR_TIMEOUT 1460
#define ERROR_OBJECT_ALREADY_EXISTS 5010

DWORD WINAPI GetLastError(void);
void WINAPI SetLastError(DWORD code);

#define FORMAT_MESSAGE_IGNORE_INSERTS 0x00000200
#define FORMAT_MESSAGE_FROM_SYSTEM 0x00001000
#define LANG_NEUTRAL 0x00
#define SUBLANG_DEFAULT 0x01
#define MAKELANGID(primary, sub) ((static_cast<WORD>(sub) << 10) | static_cast<WORD>(primary))

DWORD WINAPI FormatMessageA(DWORD flags, LPCVOID source, DWORD message_id, DWORD language_id,
                            LPSTR buffer, DWORD size, void* arguments);

#define MAX_PATH 260

UINT WINAPI GetSystemDirectoryA(LPSTR buffer, UINT size);
DWORD WINAPI GetConsoleTitleA(LPSTR title, DWORD size);
BOOL WINAPI SetConsoleTitleA(LPCSTR title);
DWORD WINAPI GetCurrentDirectoryA(DWORD size, LPSTR buffer);
BOOL WINAPI GetUserNameA(LPSTR buffer, LPDWORD size);

HMODULE WINAPI LoadLibraryA(LPCSTR name);
FARPROC WINAPI GetProcAddress(HMODULE library, LPCSTR name);
BOOL WINAPI FreeLibrary(HMODULE library);

#define VER_PLATFORM_WIN32s 0
#define VER_PLATFORM_WIN32_WINDOWS 1
#define VER_PLATFORM_WIN32_NT 2

typedef struct _OSVERSIONINFOA {
  DWORD dwOSVersionInfoSize;
  DWORD dwMajorVersion;
  DWORD dwMinorVersion;
  DWORD dwBuildNumber;
  DWORD dwPlatformId;
  char szCSDVersion[128];
} OSVERSIONINFOA, *LPOSVERSIONINFOA;

BOOL WINAPI GetVersionExA(LPOSVERSIONINFOA information);

void WINAPI Sleep(DWORD milliseconds);

#define CP_ACP 0

int WINAPI MultiByteToWideChar(UINT code_page, DWORD flags, LPCSTR text, int length, LPWSTR wide,
                               int wide_size);

// Pipes and processes.
typedef struct _SECURITY_ATTRIBUTES {
  DWORD nLength;
  LPVOID lpSecurityDescriptor;
  BOOL bInheritHandle;
} SECURITY_ATTRIBUTES, *LPSECURITY_ATTRIBUTES;

#define HANDLE_FLAG_INHERIT 0x00000001
#define STARTF_USESHOWWINDOW 0x00000001
#define STARTF_USESTDHANDLES 0x00000100
#define SW_HIDE 0

typedef struct _STARTUPINFOA {
  DWORD cb;
  LPSTR lpReserved;
  LPSTR lpDesktop;
  LPSTR lpTitle;
  DWORD dwX;
  DWORD dwY;
  DWORD dwXSize;
  DWORD dwYSize;
  DWORD dwXCountChars;
  DWORD dwYCountChars;
  DWORD dwFillAttribute;
  DWORD dwFlags;
  WORD wShowWindow;
  WORD cbReserved2;
  LPBYTE lpReserved2;
  HANDLE hStdInput;
  HANDLE hStdOutput;
  HANDLE hStdError;
} STARTUPINFOA, *LPSTARTUPINFOA;

typedef struct _PROCESS_INFORMATION {
  HANDLE hProcess;
  HANDLE hThread;
  DWORD dwProcessId;
  DWORD dwThreadId;
} PROCESS_INFORMATION, *LPPROCESS_INFORMATION;

BOOL WINAPI CreatePipe(HANDLE* read_end, HANDLE* write_end, LPSECURITY_ATTRIBUTES attributes,
                       DWORD size);
BOOL WINAPI SetHandleInformation(HANDLE handle, DWORD mask, DWORD flags);

/// Starts a program with its standard handles and no other descriptor. The command line is split at
/// blanks outside double quotes; a backslash in the program's path is a slash.
BOOL WINAPI CreateProcessA(LPCSTR application, LPSTR command_line, LPSECURITY_ATTRIBUTES process,
                           LPSECURITY_ATTRIBUTES thread, BOOL inherit, DWORD flags,
                           LPVOID environment, LPCSTR directory, LPSTARTUPINFOA startup,
                           LPPROCESS_INFORMATION information);
BOOL WINAPI ReadFile(HANDLE file, LPVOID buffer, DWORD size, LPDWORD read_size, LPVOID overlapped);
BOOL WINAPI CloseHandle(HANDLE handle);

// Files. A path that begins with a drive letter means the path of this machine without it.
DWORD WINAPI GetFullPathNameA(LPCSTR path, DWORD size, LPSTR full_path, LPSTR* file_part);
DWORD WINAPI GetLongPathNameA(LPCSTR path, LPSTR long_path, DWORD size);

#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(static_cast<INT_PTR>(-1)))

typedef struct _FILETIME {
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
} FILETIME;

typedef struct _WIN32_FIND_DATAA {
  DWORD dwFileAttributes;
  FILETIME ftCreationTime;
  FILETIME ftLastAccessTime;
  FILETIME ftLastWriteTime;
  DWORD nFileSizeHigh;
  DWORD nFileSizeLow;
  DWORD dwReserved0;
  DWORD dwReserved1;
  char cFileName[MAX_PATH];
  char cAlternateFileName[14];
} WIN32_FIND_DATAA, *LPWIN32_FIND_DATAA;

/// Lists the directory of a pattern that ends in "*.*", "." and ".." included.
HANDLE WINAPI FindFirstFileA(LPCSTR pattern, LPWIN32_FIND_DATAA data);
BOOL WINAPI FindNextFileA(HANDLE find, LPWIN32_FIND_DATAA data);
BOOL WINAPI FindClose(HANDLE find);

// Registry.
#define HKEY_LOCAL_MACHINE (reinterpret_cast<HKEY>(static_cast<std::uintptr_t>(0x80000002U)))

#define KEY_QUERY_VALUE 0x0001
#define KEY_SET_VALUE 0x0002
#define KEY_READ 0x20019
#define KEY_ALL_ACCESS 0xF003F

#define REG_NONE 0
#define REG_SZ 1
#define REG_DWORD 4
#define REG_MULTI_SZ 7

#define REG_OPTION_NON_VOLATILE 0

LSTATUS WINAPI RegOpenKeyExA(HKEY key, LPCSTR sub_key, DWORD options, REGSAM access, PHKEY result);
LSTATUS WINAPI RegCreateKeyExA(HKEY key, LPCSTR sub_key, DWORD reserved, LPSTR key_class,
                               DWORD options, REGSAM access, void* security, PHKEY result,
                               LPDWORD disposition);
LSTATUS WINAPI RegQueryValueExA(HKEY key, LPCSTR value, LPDWORD reserved, LPDWORD type, LPBYTE data,
                                LPDWORD size);
LSTATUS WINAPI RegSetValueExA(HKEY key, LPCSTR value, DWORD reserved, DWORD type, const BYTE* data,
                              DWORD size);
LSTATUS WINAPI RegCloseKey(HKEY key);

}  // extern "C"
// NOLINTEND(modernize-use-using,cppcoreguidelines-macro-usage)

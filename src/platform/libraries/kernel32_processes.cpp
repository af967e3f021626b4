// Stands in for kernel32: pipes and processes. A child is a real one; it gets its standard handles
// and no other descriptor, and it is nobody's child once it runs, so that no zombie stays.

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <windows.h>

#include "base/text.h"
#include "platform/host/calls.h"

namespace {

// A HANDLE of these functions is one more than a descriptor, which is inheritable unless it is to
// be closed when a program is started; null stands for a process or thread.

HANDLE handle_of(int descriptor) {
  return reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(descriptor) + 1);
}

int descriptor_of(HANDLE handle) {
  return static_cast<int>(reinterpret_cast<std::intptr_t>(handle) - 1);
}

/// Splits a command line at blanks outside double quotes, which are dropped.
std::vector<std::string> split_arguments(std::string_view line) {
  std::vector<std::string> arguments;
  bool in_argument = false;
  bool quoted = false;
  for (const char c : line) {
    if (is_blank(c) && !quoted) {
      in_argument = false;
      continue;
    }
    if (!std::exchange(in_argument, true)) arguments.emplace_back();
    if (c == '"') {
      quoted = !quoted;
    } else {
      arguments.back() += c;
    }
  }
  return arguments;
}

std::string with_slashes(std::string path) {
  std::replace(path.begin(), path.end(), '\\', '/');
  return path;
}

/// The program and its arguments; nothing where no program is named. An unquoted path of it may
/// hold blanks: as on the platform, the shortest beginning that names a program is it.
std::vector<std::string> find_program(const std::string& line) {
  if (line.starts_with('"')) {
    std::vector<std::string> arguments = split_arguments(line);
    arguments[0] = with_slashes(arguments[0]);
    return arguments;
  }
  for (std::size_t end = 0; end < line.size(); ++end) {
    end = std::min(line.find(' ', end), line.size());
    const std::string path = with_slashes(line.substr(0, end));
    struct stat status = {};
    const bool is_file = stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
    if (!is_file || access(path.c_str(), X_OK) != 0) continue;
    std::vector<std::string> arguments = split_arguments(line.substr(end));
    arguments.insert(arguments.begin(), path);
    return arguments;
  }
  return {};
}

/// Starts a process as this one's child; an error number of the system, 0 for success. Without its
/// actions it would keep what is not for it.
int spawn(char* const* arguments, const STARTUPINFOA& startup) {
  posix_spawn_file_actions_t actions;
  int error = posix_spawn_file_actions_init(&actions);
  if (error != 0) return error;
  int standard = STDIN_FILENO;
  for (const HANDLE handle : {startup.hStdInput, startup.hStdOutput, startup.hStdError}) {
    if (error != 0) break;
    error = handle != nullptr
                ? posix_spawn_file_actions_adddup2(&actions, descriptor_of(handle), standard)
                : posix_spawn_file_actions_addopen(&actions, standard, "/dev/null", O_RDWR, 0);
    ++standard;
  }
  // Whatever else this process has open, its own parent's gifts too, is not for the child.
  if (error == 0) error = posix_spawn_file_actions_addclosefrom_np(&actions, standard);
  if (error == 0) {
    error = posix_spawn(nullptr, arguments[0], &actions, nullptr, arguments, environ);
  }
  posix_spawn_file_actions_destroy(&actions);
  return error;
}

/// Starts a process that is not this one's child; false when it could not be started.
bool start(char* const* arguments, const STARTUPINFOA& startup) {
  const pid_t between = fork();
  if (between == 0) _exit(spawn(arguments, startup));
  int status = 0;
  return between > 0 && TEMP_FAILURE_RETRY(waitpid(between, &status, 0)) > 0 && status == 0;
}

}  // namespace

BOOL WINAPI CreatePipe(HANDLE* read_end, HANDLE* write_end, LPSECURITY_ATTRIBUTES attributes,
                       DWORD /*size*/) {
  return run_setting_last_error<BOOL>("CreatePipe", [=]() -> BOOL {
    int ends[2];
    const bool inheritable = attributes != nullptr && attributes->bInheritHandle != FALSE;
    if (pipe2(ends, inheritable ? 0 : O_CLOEXEC) != 0)
      return set_last_error<BOOL>(ERROR_NOT_ENOUGH_MEMORY);
    *read_end = handle_of(ends[0]);
    *write_end = handle_of(ends[1]);
    return TRUE;
  });
}

BOOL WINAPI SetHandleInformation(HANDLE handle, DWORD mask, DWORD flags) {
  return run_setting_last_error<BOOL>("SetHandleInformation", [=] {
    const int kept_back = (flags & HANDLE_FLAG_INHERIT) != 0 ? 0 : FD_CLOEXEC;
    if ((mask & HANDLE_FLAG_INHERIT) != 0) fcntl(descriptor_of(handle), F_SETFD, kept_back);
    return TRUE;
  });
}

BOOL WINAPI CreateProcessA(LPCSTR /*application*/, LPSTR command_line,
                           LPSECURITY_ATTRIBUTES /*process*/, LPSECURITY_ATTRIBUTES /*thread*/,
                           BOOL /*inherit*/, DWORD /*flags*/, LPVOID /*environment*/,
                           LPCSTR /*directory*/, LPSTARTUPINFOA startup,
                           LPPROCESS_INFORMATION information) {
  return run_setting_last_error<BOOL>("CreateProcessA", [=]() -> BOOL {
    for (const HANDLE handle : {startup->hStdInput, startup->hStdOutput, startup->hStdError}) {
      if (handle != nullptr && (fcntl(descriptor_of(handle), F_GETFD) & FD_CLOEXEC) != 0) {
        return set_last_error<BOOL>(ERROR_INVALID_HANDLE);
      }
    }
    std::vector<std::string> arguments = find_program(command_line);
    std::vector<char*> pointers(arguments.size() + 1);  // the last is null
    std::transform(arguments.begin(), arguments.end(), pointers.begin(),
                   [](std::string& argument) { return argument.data(); });
    if (arguments.empty() || !start(pointers.data(), *startup)) {
      return set_last_error<BOOL>(ERROR_FILE_NOT_FOUND);
    }
    *information = {};
    return TRUE;
  });
}

BOOL WINAPI ReadFile(HANDLE file, LPVOID buffer, DWORD size, LPDWORD read_size,
                     LPVOID /*overlapped*/) {
  return run_setting_last_error<BOOL>("ReadFile", [=]() -> BOOL {
    const ssize_t length = TEMP_FAILURE_RETRY(read(descriptor_of(file), buffer, size));
    *read_size = length > 0 ? static_cast<DWORD>(length) : 0;
    if (length < 0) return set_last_error<BOOL>(ERROR_INVALID_HANDLE);
    return length > 0 ? TRUE : set_last_error<BOOL>(ERROR_BROKEN_PIPE);
  });
}

BOOL WINAPI CloseHandle(HANDLE handle) {
  const ErrnoKeeper keeper;
  const auto code = scripted_failure("CloseHandle");
  if (handle != nullptr) close(descriptor_of(handle));
  return code ? set_last_error<BOOL>(*code) : TRUE;
}

// Stands in for kernel32: pipes and processes. A child is a real one; it gets its standard handles
// and no other descriptor, and it is nobody's child once it runs, so that no zombie stays.

#include <fcntl.h>
#include <linux/close_range.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <windows.h>

#include "platform/hosts/calls.h"
#include "platform/hosts/errno_keeper.h"

namespace {

/// What a HANDLE of these functions points to: a descriptor, or -1 for a process or thread.
struct OpenHandle {
  int descriptor;
  bool inheritable;
};

OpenHandle* opened(HANDLE handle) { return static_cast<OpenHandle*>(handle); }

HANDLE new_handle(int descriptor, bool inheritable) {
  return new (std::nothrow) OpenHandle{descriptor, inheritable};
}

/// Splits a command line by the platform's rules: backslashes count only before a double quote.
std::vector<std::string> split_arguments(std::string_view line) {
  std::vector<std::string> arguments;
  std::optional<std::string> argument;
  std::size_t backslashes = 0;
  bool quoted = false;
  for (const char c : line) {
    const bool is_blank = !quoted && (c == ' ' || c == '\t');
    if (!is_blank && !argument) argument.emplace();
    if (c == '\\') {
      ++backslashes;
      continue;
    }
    const bool is_literal = c != '"' || backslashes % 2 != 0;
    if (argument) argument->append(c == '"' ? backslashes / 2 : backslashes, '\\');
    backslashes = 0;
    if (is_blank) {
      if (argument) arguments.push_back(*std::exchange(argument, std::nullopt));
    } else if (is_literal) {
      *argument += c;
    } else {
      quoted = !quoted;
    }
  }
  if (argument) arguments.push_back(argument->append(backslashes, '\\'));
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
    if (access(path.c_str(), X_OK) != 0) continue;
    std::vector<std::string> arguments = split_arguments(line.substr(end));
    arguments.insert(arguments.begin(), path);
    return arguments;
  }
  return {};
}

int descriptor_of(HANDLE handle) { return handle != nullptr ? opened(handle)->descriptor : -1; }

/// Puts a descriptor in a standard one's place; without one, nothing.
void place(int descriptor, int standard) {
  const int source = descriptor >= 0 ? descriptor : open("/dev/null", O_RDWR | O_CLOEXEC);
  if (source == standard) {
    fcntl(source, F_SETFD, 0);
  } else {
    dup2(source, standard);
  }
}

/// Runs in the new process; comes back only by telling `status` that it could not start.
[[noreturn]] void become(char* const* arguments, const STARTUPINFOA& startup, int status) {
  place(descriptor_of(startup.hStdInput), STDIN_FILENO);
  place(descriptor_of(startup.hStdOutput), STDOUT_FILENO);
  place(descriptor_of(startup.hStdError), STDERR_FILENO);
  // Whatever else this process has open, its own parent's gifts too, ends with the exec.
  close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
  execv(arguments[0], arguments);
  [[maybe_unused]] const ssize_t told = write(status, "!", 1);
  _exit(127);
}

/// Starts a process that is not this one's child; false when it could not be started.
bool start(char* const* arguments, const STARTUPINFOA& startup) {
  int status[2];
  if (pipe2(status, O_CLOEXEC) != 0) return false;
  const pid_t between = fork();
  if (between == 0) {
    if (fork() == 0) become(arguments, startup, status[1]);
    _exit(0);
  }
  close(status[1]);
  char word = 0;
  // The end comes without a word when the program took the process over.
  const bool started = between > 0 && TEMP_FAILURE_RETRY(waitpid(between, nullptr, 0)) > 0 &&
                       TEMP_FAILURE_RETRY(read(status[0], &word, sizeof word)) == 0;
  close(status[0]);
  return started;
}

}  // namespace

BOOL WINAPI CreatePipe(HANDLE* read_end, HANDLE* write_end, LPSECURITY_ATTRIBUTES attributes,
                       DWORD /*size*/) {
  return leaving_code<BOOL>("CreatePipe", [=]() -> BOOL {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return refuse<BOOL>(ERROR_NOT_ENOUGH_MEMORY);
    const bool inheritable = attributes != nullptr && attributes->bInheritHandle != FALSE;
    *read_end = new_handle(ends[0], inheritable);
    *write_end = new_handle(ends[1], inheritable);
    if (*read_end != nullptr && *write_end != nullptr) return TRUE;
    close(ends[0]);
    close(ends[1]);
    delete opened(*read_end);
    delete opened(*write_end);
    return refuse<BOOL>(ERROR_NOT_ENOUGH_MEMORY);
  });
}

BOOL WINAPI SetHandleInformation(HANDLE handle, DWORD mask, DWORD flags) {
  return leaving_code<BOOL>("SetHandleInformation", [=] {
    if ((mask & HANDLE_FLAG_INHERIT) != 0) {
      opened(handle)->inheritable = (flags & HANDLE_FLAG_INHERIT) != 0;
    }
    return TRUE;
  });
}

BOOL WINAPI CreateProcessA(LPCSTR /*application*/, LPSTR command_line,
                           LPSECURITY_ATTRIBUTES /*process*/, LPSECURITY_ATTRIBUTES /*thread*/,
                           BOOL /*inherit*/, DWORD /*flags*/, LPVOID /*environment*/,
                           LPCSTR /*directory*/, LPSTARTUPINFOA startup,
                           LPPROCESS_INFORMATION information) {
  return leaving_code<BOOL>("CreateProcessA", [=]() -> BOOL {
    for (const HANDLE handle : {startup->hStdInput, startup->hStdOutput, startup->hStdError}) {
      if (handle != nullptr && !opened(handle)->inheritable) {
        return refuse<BOOL>(ERROR_INVALID_HANDLE);
      }
    }
    std::vector<std::string> arguments = find_program(command_line);
    std::vector<char*> pointers;
    for (std::string& argument : arguments) pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    if (arguments.empty() || !start(pointers.data(), *startup)) {
      return refuse<BOOL>(ERROR_FILE_NOT_FOUND);
    }
    *information = {new_handle(-1, false), new_handle(-1, false), 0, 0};
    return TRUE;
  });
}

BOOL WINAPI ReadFile(HANDLE file, LPVOID buffer, DWORD size, LPDWORD read_size,
                     LPVOID /*overlapped*/) {
  return leaving_code<BOOL>("ReadFile", [=]() -> BOOL {
    const ssize_t length = TEMP_FAILURE_RETRY(read(opened(file)->descriptor, buffer, size));
    *read_size = length > 0 ? static_cast<DWORD>(length) : 0;
    if (length < 0) return refuse<BOOL>(ERROR_INVALID_HANDLE);
    return length > 0 ? TRUE : refuse<BOOL>(ERROR_BROKEN_PIPE);
  });
}

BOOL WINAPI CloseHandle(HANDLE handle) {
  const ErrnoKeeper keeper;
  const auto code = scripted_failure("CloseHandle");
  if (handle != nullptr) {
    if (opened(handle)->descriptor >= 0) close(opened(handle)->descriptor);
    delete opened(handle);
  }
  return code ? refuse<BOOL>(*code) : TRUE;
}

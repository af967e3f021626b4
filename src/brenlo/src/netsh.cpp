#include "brenlo/src/netsh.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <string_view>

#include "shared/include/dynstore.h"

namespace {

constexpr std::size_t READ_STEP = 256;
constexpr std::size_t MAX_IPV6_TEXT = 255;

struct HandleCloser {
  void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using Handle = std::unique_ptr<void, HandleCloser>;

/// An anonymous pipe; without ends where none could be made.
struct Pipe {
  Pipe() {
    SECURITY_ATTRIBUTES attributes = {};
    attributes.nLength = sizeof attributes;
    attributes.bInheritHandle = TRUE;
    HANDLE read = nullptr;
    HANDLE write = nullptr;
    if (CreatePipe(&read, &write, &attributes, 0) == FALSE) return;
    read_end.reset(read);
    write_end.reset(write);
  }

  Handle write_end;
  Handle read_end;
};

/// The low 16 bits of the number that the leading hexadecimal digits give, behind an optional 0x.
std::uint16_t hex_group(const char* text) {
  if (text[0] == '0' && (text[1] | 0x20) == 'x') text += 2;
  unsigned value = 0;
  for (int digit = hex_value(*text); digit >= 0; digit = hex_value(*++text)) {
    value = (value << 4 | static_cast<unsigned>(digit)) & 0xFFFF;
  }
  return static_cast<std::uint16_t>(value);
}

}  // namespace

int parse_ipv6_groups(const char* text, std::uint16_t (&groups)[8]) {
  char copy[MAX_IPV6_TEXT + 1];
  copy_cut(copy, text);
  for (std::uint16_t& group : groups) group = 0;
  int count = 0;
  for (char* piece = copy; *piece != '\0' && count < std::ssize(groups);) {
    const std::size_t length = std::strcspn(piece, ":");
    const bool last = piece[length] == '\0';
    piece[length] = '\0';
    if (length > 0) groups[count++] = hex_group(piece);
    piece += last ? length : length + 1;
  }
  return 0;
}

int run_hidden_process(const char* command_line, HANDLE output, HANDLE input) {
  // The platform may write into the command line.
  const TextBlock line = copy_text(command_line);
  STARTUPINFOA startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES | STARTF_USESHOWWINDOW;
  startup.wShowWindow = SW_HIDE;
  startup.hStdInput = input;
  startup.hStdOutput = output;
  PROCESS_INFORMATION process = {};
  if (CreateProcessA(nullptr, line.get(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                     &process) == FALSE) {
    return 0;
  }
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
  return 1;
}

TextBlock read_pipe_output(std::size_t& length, HANDLE write_end, HANDLE read_end) {
  length = 0;
  // While this end is open the other never sees the end of what the child prints.
  if (CloseHandle(write_end) == FALSE) return nullptr;
  std::size_t capacity = READ_STEP;
  TextBlock text(static_cast<char*>(std::malloc(capacity)));
  char chunk[READ_STEP];
  DWORD size = 0;
  while (text != nullptr && ReadFile(read_end, chunk, sizeof chunk, &size, nullptr) != FALSE &&
         size > 0) {
    if (length + size + 1 > capacity) {
      // By a step at first; a child that prints megabytes must not have them copied each time.
      capacity += std::max(READ_STEP, capacity / 2);
      if (!resize(text, capacity)) return nullptr;
    }
    std::memcpy(text.get() + length, chunk, size);
    length += size;
  }
  if (text != nullptr) text[length] = '\0';
  return text;
}

CommandResult run_netsh(const char* verb, const char* connection, const char* address) {
  const char* const windows = std::getenv("windir");
  if (windows == nullptr) return CommandResult::NOT_STARTED;
  DynStore line;
  for (const char* piece : {windows, "\\system32\\netsh.exe interface ipv6 ", verb, " address \"",
                            connection, "\" address=", address}) {
    line.append_str(piece);
  }
  Pipe output;
  Pipe input;
  if (output.read_end == nullptr || input.read_end == nullptr) return CommandResult::NOT_STARTED;
  SetHandleInformation(input.write_end.get(), HANDLE_FLAG_INHERIT, 0);
  if (run_hidden_process(line.str(), output.write_end.get(), input.read_end.get()) == 0) {
    return CommandResult::NOT_STARTED;
  }
  std::size_t length = 0;
  const TextBlock text =
      read_pipe_output(length, output.write_end.release(), output.read_end.get());
  const bool succeeded =
      text != nullptr && std::string_view(text.get(), length).find("Ok.") != std::string_view::npos;
  return succeeded ? CommandResult::SUCCEEDED : CommandResult::FAILED;
}

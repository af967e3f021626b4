#include "platform/hosts/console.h"

#include <dlfcn.h>
#include <histedit.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cwchar>
#include <cwctype>
#include <new>
#include <string>
#include <string_view>
#include <utility>

namespace {

constexpr int HISTORY_SIZE = 1000;
// The terminal keeps its own title on a stack meanwhile.
constexpr std::string_view KEEP_TITLE = "\x1B[22;2t";
constexpr std::string_view RESTORE_TITLE = "\x1B[23;2t";

/// Writes it all; a terminal that has gone away takes nothing.
void write_all(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = TEMP_FAILURE_RETRY(write(descriptor, text.data(), text.size()));
    if (written < 0) return;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

// ---- Texts ------------------------------------------------------------------------------------

/// The length in bytes of the character, or the end of a line, that a text begins with and a
/// terminal shows as it is; 0 for anything else.
std::size_t shown_length(std::string_view text) {
  if (text.starts_with("\r\n")) return 2;
  if (text[0] == '\n' || text[0] == '\t') return 1;
  wchar_t c = 0;
  std::mbstate_t state = {};
  const std::size_t length = std::mbrtowc(&c, text.data(), text.size(), &state);
  return length <= text.size() && std::iswprint(static_cast<std::wint_t>(c)) != 0 ? length : 0;
}

/// Gives a text to `put`, a part at a time, in which what would lead a terminal astray is told in
/// plain characters: "^[" for an escape.
template <typename Put>
void show(std::string_view text, Put put) {
  while (!text.empty()) {
    const std::size_t length = shown_length(text);
    if (length != 0) {
      put(text.substr(0, length));
    } else if (const auto c = static_cast<unsigned char>(text[0]); c < 0x80) {
      const char caret[] = {'^', static_cast<char>(c ^ 0x40)};
      put({caret, sizeof caret});
    } else {
      char digits[8];
      put({digits, static_cast<std::size_t>(std::snprintf(digits, sizeof digits, "\\x%02X", c))});
    }
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
}

// ---- Lines ------------------------------------------------------------------------------------

/// What the program wrote to standard output of a line that has not ended: the prompt.
std::string prompt;

ssize_t write_output(void* /*cookie*/, const char* text, std::size_t size) {
  write_all(STDOUT_FILENO, {text, size});
  try {
    prompt.append(text, size);
    prompt.erase(0, prompt.rfind('\n') + 1);
  } catch (const std::bad_alloc&) {
    prompt.clear();
  }
  return static_cast<ssize_t>(size);
}

/// One write for a report, and no memory asked for.
ssize_t write_errors(void* /*cookie*/, const char* text, std::size_t size) {
  static char buffer[65536];
  std::size_t used = 0;
  const auto flush = [&used] { write_all(STDERR_FILENO, {buffer, std::exchange(used, 0)}); };
  show({text, size}, [&](std::string_view part) {
    if (used + part.size() > sizeof buffer) flush();
    used += part.copy(buffer + used, part.size());
  });
  flush();
  return static_cast<ssize_t>(size);
}

/// The editing library, bound when a line is first read at a terminal: no other start pays for it.
class Editor {
 public:
  [[nodiscard]] bool is_open() const { return line_ != nullptr && lines_ != nullptr; }

  /// Stays closed where the library is not installed.
  void open(std::FILE* input, std::FILE* output) {
    void* const library = dlopen("libedit.so.2", RTLD_NOW);
    if (library == nullptr) return;
    set_ = find<decltype(el_set)>(library, "el_set");
    gets_ = find<decltype(el_gets)>(library, "el_gets");
    history_ = find<decltype(history)>(library, "history");
    line_ = find<decltype(el_init)>(library, "el_init")("kadrix", input, output, stderr);
    lines_ = find<decltype(history_init)>(library, "history_init")();
    if (!is_open()) return;
    HistEvent event;
    history_(lines_, &event, H_SETSIZE, HISTORY_SIZE);
    history_(lines_, &event, H_SETUNIQUE, 1);
    // The library asks for the prompt by this name.
    const auto ask_prompt = [](EditLine*) { return prompt.data(); };
    set_(line_, EL_PROMPT, static_cast<char* (*)(EditLine*)>(ask_prompt));
    set_(line_, EL_EDITOR, "emacs");
    set_(line_, EL_HIST, history_, lines_);
    // The terminal is put in order before a signal does what it does.
    set_(line_, EL_SIGNAL, 1);
    bind_keys();
  }

  /// Reads a line into `text`, its end included; nothing at the end of input. The library takes no
  /// NUL.
  void read(std::string& text) {
    int count = 0;
    // The prompt stands already; the library writes it again.
    write_all(STDOUT_FILENO, "\r");
    const char* line = gets_(line_, &count);
    prompt.clear();
    text.clear();
    if (line == nullptr || count <= 0) {
      write_all(STDOUT_FILENO, "\n");
      return;
    }
    text = line;
    HistEvent event;
    if (text.find_first_not_of(" \t\r\n") != std::string::npos) {
      history_(lines_, &event, H_ENTER, text.c_str());
    }
  }

 private:
  template <typename Function>
  static Function* find(void* library, const char* name) {
    return reinterpret_cast<Function*>(dlsym(library, name));
  }

  void bind_keys() {
    struct Key {
      const char* sequence;
      const char* action;
    };
    constexpr Key KEYS[] = {
        {"\\e[H", "ed-move-to-beg"},       {"\\eOH", "ed-move-to-beg"},
        {"\\e[1~", "ed-move-to-beg"},      {"\\e[F", "ed-move-to-end"},
        {"\\eOF", "ed-move-to-end"},       {"\\e[4~", "ed-move-to-end"},
        {"\\e[3~", "ed-delete-next-char"}, {"\\e[1;5D", "ed-prev-word"},
        {"\\e[1;5C", "em-next-word"},      {"^W", "ed-delete-prev-word"},
        {"^R", "em-inc-search-prev"},
    };
    for (const auto& [sequence, action] : KEYS) {
      set_(line_, EL_BIND, sequence, action, nullptr);
    }
  }

  decltype(&el_set) set_ = nullptr;
  decltype(&el_gets) gets_ = nullptr;
  decltype(&history) history_ = nullptr;
  EditLine* line_ = nullptr;
  History* lines_ = nullptr;
};

/// Never destroyed: exit handlers may still write.
struct Console {
  std::FILE* input;
  std::FILE* output;
  bool opened = false;
  Editor editor = {};
  std::string line = {};
  std::size_t given = 0;  ///< of the line
  std::string title = {};
};

Console* console = nullptr;

ssize_t read_input(void* /*cookie*/, char* buffer, std::size_t size) {
  if (!std::exchange(console->opened, true)) console->editor.open(console->input, console->output);
  if (!console->editor.is_open()) return read(STDIN_FILENO, buffer, size);
  if (console->given == console->line.size()) {
    console->given = 0;
    try {
      console->editor.read(console->line);
    } catch (const std::bad_alloc&) {
      console->line.clear();
      errno = ENOMEM;
      return -1;
    }
  }
  const std::size_t count = console->line.copy(buffer, size, console->given);
  console->given += count;
  return static_cast<ssize_t>(count);
}

std::FILE* open_stream(const char* mode, cookie_read_function_t* read,
                       cookie_write_function_t* write) {
  return fopencookie(nullptr, mode, {read, write, nullptr, nullptr});
}

// ---- Title ------------------------------------------------------------------------------------

void restore_title_and_end(int signal) {
  if (!console->title.empty()) write_all(STDOUT_FILENO, RESTORE_TITLE);
  std::raise(signal);
}

/// A signal that ends the program gives the terminal its own title back first.
void handle_signals() {
  struct sigaction action = {};
  action.sa_handler = restore_title_and_end;
  action.sa_flags = static_cast<int>(SA_RESETHAND | SA_NODEFER);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction before = {};
    sigaction(signal, nullptr, &before);
    if (before.sa_handler != SIG_IGN) sigaction(signal, &action, nullptr);
  }
}

}  // namespace

void open_console() {
  if (isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0) return;
  console = new Console{stdin, stdout};
  handle_signals();
  // What is typed and shown is in the terminal's characters.
  std::setlocale(LC_CTYPE, "");
  if (isatty(STDERR_FILENO) != 0) {
    if (std::FILE* errors = open_stream("w", nullptr, write_errors)) {
      std::setvbuf(errors, nullptr, _IONBF, 0);
      stderr = errors;
    }
  }
  std::FILE* const input = open_stream("r", read_input, nullptr);
  std::FILE* const output = open_stream("w", nullptr, write_output);
  if (input == nullptr || output == nullptr) return;
  stdin = input;
  stdout = output;
}

const std::string& console_title() {
  static const std::string none;
  return console != nullptr ? console->title : none;
}

bool set_console_title(std::string_view title) {
  if (console == nullptr) return false;
  const bool is_own = console->title.empty();
  std::string sequence;
  if (title.empty()) {
    if (!is_own) sequence = RESTORE_TITLE;
  } else {
    if (is_own) sequence = KEEP_TITLE;
    sequence += "\x1B]2;";
    show(title, [&sequence](std::string_view part) { sequence += part; });
    sequence += "\x07";
  }
  console->title = title;
  write_all(STDOUT_FILENO, sequence);
  return true;
}

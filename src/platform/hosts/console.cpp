#include "platform/hosts/console.h"

#include <dlfcn.h>
#include <histedit.h>
#include <unistd.h>

#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstring>
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
    const ssize_t written = write(descriptor, text.data(), text.size());
    if (written < 0 && errno != EINTR) return;
    if (written > 0) text.remove_prefix(static_cast<std::size_t>(written));
  }
}

// ---- Texts ------------------------------------------------------------------------------------

/// The length of the character (UTF-8) of several bytes at the beginning of a text, 0 where there
/// is none. The control characters beyond ASCII are none either.
std::size_t character_length(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const std::size_t length = byte(0) >= 0xF0 ? 4 : byte(0) >= 0xE0 ? 3 : 2;
  if (byte(0) < 0xC2 || byte(0) > 0xF4 || text.size() < length) return 0;
  if (byte(0) == 0xC2 && byte(1) < 0xA0) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
  }
  return length;
}

/// Gives a text to `put`, a part at a time, in which control characters, line ends and tabs aside,
/// are shown: "^[" for an escape.
template <typename Put>
void show(std::string_view text, Put put) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    const bool ends_line = c == '\n' || (c == '\r' && i + 1 < text.size() && text[i + 1] == '\n');
    if (ends_line || c == '\t' || (c >= ' ' && c < 0x7F)) {
      put(text.substr(i, 1));
    } else if (c < 0x80) {
      const char caret[] = {'^', static_cast<char>(c ^ 0x40)};
      put({caret, 2});
    } else if (const std::size_t length = character_length(text.substr(i)); length != 0) {
      put(text.substr(i, length));
      i += length - 1;
    } else {
      char digits[8];
      put({digits, static_cast<std::size_t>(std::snprintf(digits, sizeof digits, "\\x%02X", c))});
    }
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
  show({text, size}, [&used](std::string_view part) {
    if (used + part.size() > sizeof buffer) {
      write_all(STDERR_FILENO, {buffer, used});
      used = 0;
    }
    used += part.copy(buffer + used, part.size());
  });
  write_all(STDERR_FILENO, {buffer, used});
  return static_cast<ssize_t>(size);
}

/// The editing library, bound when a line is first read at a terminal: no other start pays for it.
class Editor {
 public:
  [[nodiscard]] bool is_open() const { return lines_ != nullptr; }

  /// Stays closed where the library is not installed.
  void open(std::FILE* input, std::FILE* output) {
    void* const library = dlopen("libedit.so.2", RTLD_NOW);
    if (library == nullptr) return;
    find(library, "el_init", init_);
    find(library, "el_set", set_);
    find(library, "el_gets", gets_);
    find(library, "history_init", history_init_);
    find(library, "history", history_);
    if (init_ == nullptr || set_ == nullptr || gets_ == nullptr || history_init_ == nullptr ||
        history_ == nullptr) {
      return;
    }
    line_ = init_("kadrix", input, output, stderr);
    if (line_ == nullptr) return;
    lines_ = history_init_();
    if (lines_ == nullptr) return;
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
  static void find(void* library, const char* name, Function& function) {
    function = reinterpret_cast<Function>(dlsym(library, name));
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

  decltype(&el_init) init_ = nullptr;
  decltype(&el_set) set_ = nullptr;
  decltype(&el_gets) gets_ = nullptr;
  decltype(&history_init) history_init_ = nullptr;
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

constexpr int ENDING_SIGNALS[] = {SIGINT, SIGTERM, SIGHUP};

void restore_title_and_end(int signal) {
  write_all(STDOUT_FILENO, RESTORE_TITLE);
  std::raise(signal);
}

/// While the title is the program's, a signal that ends the program gives the terminal's own back.
void handle_signals(bool ours) {
  struct sigaction action = {};
  action.sa_handler = ours ? restore_title_and_end : SIG_DFL;
  action.sa_flags = ours ? static_cast<int>(SA_RESETHAND | SA_NODEFER) : 0;
  for (const int signal : ENDING_SIGNALS) {
    struct sigaction before = {};
    sigaction(signal, nullptr, &before);
    if (before.sa_handler != SIG_IGN) sigaction(signal, &action, nullptr);
  }
}

}  // namespace

void open_console() {
  if (isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0) return;
  console = new Console{stdin, stdout};
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
  std::string sequence;
  if (console->title.empty() && !title.empty()) {
    sequence = KEEP_TITLE;
    handle_signals(true);
  }
  if (title.empty()) {
    if (!console->title.empty()) sequence = RESTORE_TITLE;
    handle_signals(false);
  } else {
    sequence += "\x1B]2;";
    show(title, [&sequence](std::string_view part) { sequence += part; });
    sequence += "\x07";
  }
  console->title = title;
  write_all(STDOUT_FILENO, sequence);
  return true;
}

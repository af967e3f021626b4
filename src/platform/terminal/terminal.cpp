#include "platform/terminal/terminal.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <histedit.h>
#include <langinfo.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <cwctype>
#include <new>
#include <string>
#include <utility>

#include "base/find.h"
#include "base/not_copied.h"
#include "base/text.h"

namespace {

constexpr int HISTORY_SIZE = 1000;
constexpr wchar_t ESCAPE = 0x1B;
constexpr wchar_t REPLACEMENT = 0xFFFD;
// The terminal keeps its own title on a stack meanwhile.
constexpr std::string_view KEEP_TITLE = "\x1B[22;2t";
constexpr std::string_view RESTORE_TITLE = "\x1B[23;2t";

/// Whether a call failed only because another program left the terminal non-blocking; waits then.
bool waited_for_room(int descriptor) {
  pollfd wanted = {descriptor, POLLOUT, 0};
  return errno == EAGAIN && poll(&wanted, 1, -1) > 0;
}

/// Writes it all; a terminal that has gone away takes nothing.
void write_all(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(descriptor, text.data(), text.size());
    if (written < 0 && !waited_for_room(descriptor) && errno != EINTR) return;
    if (written > 0) text.remove_prefix(static_cast<std::size_t>(written));
  }
}

// ---- Texts ------------------------------------------------------------------------------------

struct CharacterRange {
  char32_t first;
  char32_t last;
};

/// Characters that show nothing themselves but change how others are shown: their direction, their
/// joining, the language they are tagged with.
constexpr CharacterRange FORMAT_CHARACTERS[] = {
    {0x00AD, 0x00AD}, {0x0600, 0x0605}, {0x061C, 0x061C},   {0x06DD, 0x06DD},   {0x070F, 0x070F},
    {0x180B, 0x180F}, {0x200B, 0x200F}, {0x2028, 0x202E},   {0x2060, 0x206F},   {0xFE00, 0xFE0F},
    {0xFEFF, 0xFEFF}, {0xFFF9, 0xFFFB}, {0x1D173, 0x1D17A}, {0xE0000, 0xE0FFF},
};

bool is_shown(wchar_t c) {
  const auto code = static_cast<char32_t>(c);
  const auto holds = [=](const auto& range) { return code >= range.first && code <= range.last; };
  return std::ranges::none_of(FORMAT_CHARACTERS, holds) &&
         std::iswprint(static_cast<std::wint_t>(c)) != 0;
}

/// The length in bytes of the character, or the end of a line, that a text begins with and a
/// terminal shows as it is; 0 for anything else.
std::size_t shown_length(std::string_view text) {
  if (text.starts_with("\r\n")) return 2;
  if (text[0] == '\n' || text[0] == '\t') return 1;
  if (text[0] >= ' ' && text[0] <= '~') return 1;
  wchar_t c = 0;
  std::mbstate_t state = {};
  const std::size_t length = std::mbrtowc(&c, text.data(), text.size(), &state);
  return length <= text.size() && is_shown(c) ? length : 0;
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

// ---- Title ------------------------------------------------------------------------------------

/// Terminals without a title would show the sequences that set one.
bool has_title(const char* terminal) {
  const std::string_view name = terminal != nullptr ? terminal : "";
  return !name.empty() && name != "dumb" && name != "linux" && !name.starts_with("vt");
}

/// Asks for no memory, and nothing destroys it: exit handlers, signals and whoever ends the program
/// for want of memory still restore the terminal's own.
struct Title {
  bool possible;
  char text[4096];
  /// The terminal's own title is on its stack.
  volatile std::sig_atomic_t is_shown;
};

constinit Title title = {};

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

void keep_line();

/// The signals that are blocked while no line is edited.
sigset_t signals_outside;

/// While it lives, the signals after which a line is begun anew wait until a key is waited for, as
/// only then they are noticed.
class HeldSignals : NotCopied {
 public:
  HeldSignals() {
    sigset_t held;
    sigemptyset(&held);
    for (const int signal : {SIGTSTP, SIGCONT, SIGWINCH}) sigaddset(&held, signal);
    sigprocmask(SIG_BLOCK, &held, &signals_outside);
  }
  ~HeldSignals() { sigprocmask(SIG_SETMASK, &signals_outside, nullptr); }
};

/// What is typed, a character at a time. Keys that send sequences of characters become the control
/// characters that stand for them, or nothing.
class Keyboard {
 public:
  /// 1 and a character; 0 at the end of input; -1, errno set, for a read that failed.
  int read(wchar_t& c) {
    for (;;) {
      const int result = read_character(c);
      if (result != 1 || c != ESCAPE) return result;
      if (const int sequence = read_sequence(c); sequence != 0) return sequence;
    }
  }

 private:
  struct KeySequence {
    std::string_view sequence;  ///< what follows the escape
    char letter;                ///< of the control character that stands for the key
  };
  static constexpr KeySequence KEYS[] = {
      {"[A", 'P'},  {"OA", 'P'},  {"[B", 'N'},    {"OB", 'N'},    {"[C", 'F'},
      {"OC", 'F'},  {"[D", 'B'},  {"OD", 'B'},    {"[H", 'A'},    {"OH", 'A'},
      {"[1~", 'A'}, {"[7~", 'A'}, {"[F", 'E'},    {"OF", 'E'},    {"[4~", 'E'},
      {"[8~", 'E'}, {"[3~", ']'}, {"[1;5D", '^'}, {"[1;5C", '_'},
  };

  /// A signal that did not end the program does not end the input. Another program may have left
  /// the terminal non-blocking.
  static int read_byte(unsigned char& byte) {
    pollfd typed = {STDIN_FILENO, POLLIN, 0};
    ssize_t result = 0;
    do {
      result = ppoll(&typed, 1, nullptr, &signals_outside);
      if (result > 0) result = ::read(STDIN_FILENO, &byte, 1);
    } while (result < 0 && errno == EAGAIN);
    if (result < 0 && errno == EINTR) keep_line();
    return static_cast<int>(result);
  }

  /// A character of the locale; what is none becomes one that shows that something was typed.
  static int read_character(wchar_t& c) {
    std::mbstate_t state = {};
    for (;;) {
      unsigned char byte = 0;
      if (const int result = read_byte(byte); result != 1) return result;
      const char narrow = static_cast<char>(byte);
      const std::size_t length = std::mbrtowc(&c, &narrow, 1, &state);
      if (length == static_cast<std::size_t>(-2)) continue;
      if (length == static_cast<std::size_t>(-1)) c = REPLACEMENT;
      return 1;
    }
  }

  /// Reads what follows an escape. 1 and the character of a known key, 0 for any other, or the
  /// result of a read.
  static int read_sequence(wchar_t& c) {
    std::string sequence;
    const auto add = [&sequence](unsigned char& byte) {
      const int result = read_byte(byte);
      if (result == 1 && sequence.size() < 32) sequence += static_cast<char>(byte);
      return result;
    };
    unsigned char byte = 0;
    int result = add(byte);
    const bool is_control_sequence = byte == '[';
    if (result == 1 && (is_control_sequence || byte == 'O')) {
      result = add(byte);
      // The keys of the system's own console have one more bracket.
      if (result == 1 && is_control_sequence && byte == '[') result = add(byte);
      while (result == 1 && is_control_sequence && byte >= 0x20 && byte < 0x40) result = add(byte);
    }
    if (result != 1) return result == 0 ? -1 : result;
    const auto* const key = find_with(KEYS, sequence, &KeySequence::sequence);
    if (key == nullptr) return 0;
    c = key->letter & 31;
    return 1;
  }
};

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
    edited_ = find<decltype(el_line)>(library, "el_line");
    push_ = find<decltype(el_push)>(library, "el_push");
    line_ = find<decltype(el_init)>(library, "el_init")("kadrix", input, output, stderr);
    lines_ = find<decltype(history_init)>(library, "history_init")();
    if (!is_open()) return;
    HistEvent event;
    history_(lines_, &event, H_SETSIZE, HISTORY_SIZE);
    history_(lines_, &event, H_SETUNIQUE, 1);
    // The library asks for the prompt and for characters by these names.
    const auto ask_prompt = [](EditLine*) { return prompt.data(); };
    const auto read_key = [](EditLine*, wchar_t* c) { return Keyboard().read(*c); };
    set_(line_, EL_PROMPT, static_cast<char* (*)(EditLine*)>(ask_prompt));
    set_(line_, EL_EDITOR, "emacs");
    set_(line_, EL_GETCFN, static_cast<int (*)(EditLine*, wchar_t*)>(read_key));
    set_(line_, EL_HIST, history_, lines_);
    // The terminal is put in order before a signal does what it does.
    set_(line_, EL_SIGNAL, 1);
    bind_keys();
  }

  /// Keeps the line that is being edited, with its cursor, to begin anew with it: somebody else had
  /// the terminal meanwhile, or its size changed.
  void keep() {
    const LineInfo* const now = edited_(line_);
    kept_.assign(now->buffer, now->lastchar);
    const std::string behind(now->cursor, now->lastchar);
    const std::size_t steps = std::mbstowcs(nullptr, behind.c_str(), 0);
    kept_.append(steps != static_cast<std::size_t>(-1) ? steps : behind.size(), 'B' & 31);
    interrupted_ = true;
    errno = EINTR;
  }

  /// Reads a line into `text`, its end included; nothing at the end of input. The library takes no
  /// NUL.
  void read(std::string& text) {
    int count = 0;
    const char* line = nullptr;
    kept_.clear();
    // The library takes a signal once in a line; begun anew, it takes it again.
    do {
      const HeldSignals held;
      if (!kept_.empty()) {
        // What is pushed is shown before the library waits for a key, and puts the terminal in
        // order.
        set_(line_, EL_PREP_TERM, 1);
        push_(line_, kept_.c_str());
      }
      // The prompt stands already; the library writes it again.
      write_all(STDOUT_FILENO, "\r");
      line = gets_(line_, &count);
    } while (std::exchange(interrupted_, false));
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
    struct KeyBinding {
      const char* key;
      const char* action;
    };
    // The first is a character like others; the next three are sent by no key, see Keyboard.
    constexpr KeyBinding BINDINGS[] = {
        {"^I", "ed-insert"},    {"^]", "ed-delete-next-char"}, {"^^", "ed-prev-word"},
        {"^_", "em-next-word"}, {"^W", "ed-delete-prev-word"}, {"^R", "em-inc-search-prev"},
    };
    for (const auto& [key, action] : BINDINGS) set_(line_, EL_BIND, key, action, nullptr);
  }

  decltype(&el_set) set_ = nullptr;
  decltype(&el_gets) gets_ = nullptr;
  decltype(&history) history_ = nullptr;
  decltype(&el_line) edited_ = nullptr;
  decltype(&el_push) push_ = nullptr;
  std::string kept_ = {};
  bool interrupted_ = false;
  EditLine* line_ = nullptr;
  History* lines_ = nullptr;
};

/// Never destroyed: exit handlers may still write.
struct Terminal {
  std::FILE* input;
  std::FILE* output;
  std::string prompt_title;
  bool opened = false;
  Editor editor = {};
  std::string line = {};
  std::size_t given = 0;  ///< of the line
};

Terminal* terminal = nullptr;

void keep_line() { terminal->editor.keep(); }

void open_editor() {
  terminal->editor.open(terminal->input, terminal->output);
  static_cast<void>(set_terminal_title(terminal->prompt_title));
}

ssize_t read_input(void* /*cookie*/, char* buffer, std::size_t size) {
  try {
    if (!std::exchange(terminal->opened, true)) open_editor();
    if (!terminal->editor.is_open()) {
      return TEMP_FAILURE_RETRY(read(STDIN_FILENO, buffer, size));
    }
    if (terminal->given == terminal->line.size()) {
      terminal->given = 0;
      terminal->editor.read(terminal->line);
    }
  } catch (const std::bad_alloc&) {
    terminal->line.clear();
    errno = ENOMEM;
    return -1;
  }
  const std::size_t count = terminal->line.copy(buffer, size, terminal->given);
  terminal->given += count;
  return static_cast<ssize_t>(count);
}

std::FILE* open_stream(const char* mode, cookie_read_function_t* read,
                       cookie_write_function_t* write) {
  return fopencookie(nullptr, mode, {read, write, nullptr, nullptr});
}

/// What is typed and shown is in the terminal's characters; where no locale says which, in UTF-8.
void choose_characters() {
  std::setlocale(LC_CTYPE, "");
  if (std::string_view(nl_langinfo(CODESET)) == "ANSI_X3.4-1968") {
    std::setlocale(LC_CTYPE, "C.UTF-8");
  }
}

// ---- Signals ----------------------------------------------------------------------------------

bool (*ask_interruption)() = nullptr;

void handle_signal(int signal) {
  const int kept = errno;
  if (signal == SIGINT && ask_interruption()) {
    errno = kept;
    return;
  }
  restore_terminal_title();
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

/// Those that somebody chose to ignore stay ignored.
void handle_signals(bool (*interrupt)()) {
  ask_interruption = interrupt;
  struct sigaction action = {};
  action.sa_handler = handle_signal;
  action.sa_flags = static_cast<int>(SA_RESTART | SA_NODEFER);
  for (const int signal : {SIGINT, SIGQUIT, SIGTERM, SIGHUP}) {
    struct sigaction before = {};
    sigaction(signal, nullptr, &before);
    if (before.sa_handler != SIG_IGN) sigaction(signal, &action, nullptr);
  }
}

}  // namespace

void open_missing_streams() {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    // The lowest free number is given, which is this one.
    if (fcntl(descriptor, F_GETFD) < 0 && open("/dev/null", O_RDWR) != descriptor) return;
  }
}

void open_terminal(std::string_view prompt_title, bool (*interrupt)()) {
  const bool shows_errors = isatty(STDERR_FILENO) != 0;
  const bool reads_keys = isatty(STDIN_FILENO) != 0;
  const bool has_prompt = reads_keys && isatty(STDOUT_FILENO) != 0;
  if (shows_errors || has_prompt) choose_characters();
  if (shows_errors) {
    if (std::FILE* errors = open_stream("w", nullptr, write_errors)) {
      std::setvbuf(errors, nullptr, _IONBF, 0);
      stderr = errors;
    }
  }
  if (reads_keys) handle_signals(interrupt);
  if (!has_prompt) return;
  title.possible = has_title(std::getenv("TERM"));
  terminal = new Terminal{stdin, stdout, std::string(prompt_title)};
  std::FILE* const input = open_stream("r", read_input, nullptr);
  std::FILE* const output = open_stream("w", nullptr, write_output);
  if (input == nullptr || output == nullptr) return;
  stdin = input;
  stdout = output;
}

void restore_terminal_title() {
  if (title.is_shown == 0) return;
  title.is_shown = 0;
  write_all(STDOUT_FILENO, RESTORE_TITLE);
}

const char* terminal_title() { return title.text; }

bool set_terminal_title(std::string_view text) {
  if (!title.possible) return false;
  if (text.empty()) {
    restore_terminal_title();
  } else {
    std::string sequence;
    if (title.is_shown == 0) sequence = KEEP_TITLE;
    sequence += "\x1B]2;";
    show(text, [&sequence](std::string_view part) { sequence += part; });
    sequence += "\x07";
    title.is_shown = 1;
    write_all(STDOUT_FILENO, sequence);
  }
  copy_cut(title.text, text);
  return true;
}

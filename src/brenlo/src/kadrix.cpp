#include "brenlo/src/kadrix.h"

#include <windows.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <span>

#include "shared/include/os_identity.h"
#include "shared/include/utils.h"
#include "shared/include/vmk_errmsg.h"

namespace {

constexpr int LINE_BUFFER_SIZE = 1024;
constexpr int MAX_ARGUMENTS = 4;
constexpr char BLANKS[] = " \t";

ReportSite here(int line = __builtin_LINE()) { return {".\\kadrix", line}; }

// ---- Input ------------------------------------------------------------------------------------

/// The line being read. Characters that the buffer cannot hold, or that a command cannot hold, make
/// it unreadable, but it is still read to its end.
class InputLine {
 public:
  void add(char c) {
    if (length_ == LINE_BUFFER_SIZE - 1 || c == '\0') {
      readable_ = false;
    } else {
      text_[length_++] = c;
    }
    text_[length_] = '\0';
  }

  /// Reads one line of standard input without its line end; a carriage return before the line end
  /// goes with it. False when the line is unreadable or the input ended before any character.
  [[nodiscard]] bool read() {
    length_ = 0;
    text_[0] = '\0';
    readable_ = true;
    bool any = false;
    bool held_return = false;
    int c = std::getchar();
    for (; c != EOF && c != '\n'; c = std::getchar()) {
      any = true;
      if (held_return) add('\r');
      held_return = c == '\r';
      if (!held_return) add(static_cast<char>(c));
    }
    // A line that a failing stream cut short is not carried out.
    return readable_ && std::ferror(stdin) == 0 && (any || c == '\n');
  }

  [[nodiscard]] char* text() { return text_; }

 private:
  char text_[LINE_BUFFER_SIZE] = "";
  int length_ = 0;
  bool readable_ = true;
};

/// Cuts words out of a line in place.
class Words {
 public:
  explicit Words(char* line) : rest_(line) {}

  /// The next word, or null when there is none.
  [[nodiscard]] char* next() {
    char* const word = rest_ + std::strspn(rest_, BLANKS);
    if (*word == '\0') return nullptr;
    rest_ = word + std::strcspn(word, BLANKS);
    if (*rest_ != '\0') *rest_++ = '\0';
    return word;
  }

  /// What follows the blank that ended the last word, unchanged; null when nothing does.
  [[nodiscard]] const char* remainder() const { return *rest_ != '\0' ? rest_ : nullptr; }

 private:
  char* rest_;
};

// ---- Commands ---------------------------------------------------------------------------------

struct Console;

/// What a command works with: its required words, and the adapter name or null.
struct Request {
  const char* words[MAX_ARGUMENTS];
  const char* adapter;
};

/// Where a command is offered.
enum class Offer { EVERYWHERE, NOT_ON_NT4 };

struct Command {
  const char* words[3];
  const char* help;   ///< its line of the help, or null
  const char* usage;  ///< null for a command without arguments
  int required;       ///< the number of words it needs
  Offer offer;
  void (*run)(Console& console, const Request& request);
};

struct Console {
  System& system;
  bool is_nt4;
  bool done;
};

void add(Console& console, const Request& request) {
  const auto& [address, mask, unused1, unused2] = request.words;
  if (console.system.add_address(request.adapter, address, mask) == 0) {
    write_info("success.");
  } else {
    report(CLOSE_ERROR, here(), "error adding address %s,%s.", address, mask);
  }
}

void report_removal(ReportSite site, int result, const char* address) {
  if (result == 0) {
    write_info("success.");
  } else {
    report(CLOSE_ERROR, site, "error deleting address %s", address);
  }
}

void del(Console& console, const Request& request) {
  const char* address = request.words[0];
  report_removal(here(), console.system.delete_address(request.adapter, address), address);
}

void purge(Console& console, const Request& request) {
  const char* address = request.words[0];
  report_removal(here(), console.system.purge_address(request.adapter, address), address);
}

void stress(Console& console, const Request& request) {
  const auto& [iterations, addresses, start, mask] = request.words;
  run_stress(console.system, request.adapter, iterations, addresses, start, mask);
}

void print(Console& console, const Request& /*request*/) { console.system.print_report(); }

void quit(Console& console, const Request& /*request*/) { console.done = true; }

void show_help(Console& console, const Request& request);

/// Every command, in the order of the help.
constexpr Command COMMANDS[] = {
    {{"help", "?"}, "help or ?", nullptr, 0, Offer::EVERYWHERE, show_help},
    {{"print"}, "print", nullptr, 0, Offer::EVERYWHERE, print},
    {{"add"},
     "add  <ip-address> <subnet-mask> [<adapter-name>]",
     "add <ip-address> <subnet-mask> [<adapter-name>]",
     2,
     Offer::EVERYWHERE,
     add},
    {{"del"},
     "del  <ip-address> [<adapter-name>]",
     "del <ip-address> [<adapter-name>]",
     1,
     Offer::EVERYWHERE,
     del},
    {{"purge"},
     "purge <ip-address> [<adapter-name>]",
     "purge <ip-address> [<adapter-name>]",
     1,
     Offer::NOT_ON_NT4,
     purge},
    {{"quit", "exit", "."}, "quit or exit or .", nullptr, 0, Offer::EVERYWHERE, quit},
    {{"stress"},
     nullptr,
     "stress <num-iterations> <num-addresses> <start-address> <subnet-mask> [<adapter-name>]",
     4,
     Offer::EVERYWHERE,
     stress},
};

bool is_offered(const Console& console, const Command& command) {
  return command.offer == Offer::EVERYWHERE || !console.is_nt4;
}

void show_help(Console& console, const Request& /*request*/) {
  for (const Command& command : COMMANDS) {
    if (command.help != nullptr && is_offered(console, command)) write_info("%s", command.help);
  }
}

const Command* find_command(const Console& console, const char* word) {
  const auto answers_to = [=](const char* own) {
    return own != nullptr && equals_ignoring_case(own, word);
  };
  const auto* command =
      std::find_if(std::begin(COMMANDS), std::end(COMMANDS), [&](const Command& candidate) {
        return is_offered(console, candidate) &&
               std::any_of(std::begin(candidate.words), std::end(candidate.words), answers_to);
      });
  return command != std::end(COMMANDS) ? command : nullptr;
}

/// Cuts the words that the command needs; false, after a report, when one is missing.
bool take_arguments(const Command& command, Words& words, Request& request) {
  for (int i = 0; i < command.required; ++i) {
    request.words[i] = words.next();
    if (request.words[i] != nullptr) continue;
    report(BEGIN_ERROR, here(), "%s", command.usage);
    report(CLOSE_ERROR, here(), "insufficient number of parameters.");
    return false;
  }
  return true;
}

/// Announces the adapter that the command names, or lists them all, which settles the first active
/// one.
void resolve_adapter(Console& console, const Words& words, Request& request) {
  request.adapter = words.remainder();
  if (request.adapter != nullptr) {
    write_info("Using [%s] as the network interface", request.adapter);
  } else {
    console.system.list_adapters();
  }
}

void run_line(Console& console, char* line) {
  Words words(line);
  const char* word = words.next();
  if (word == nullptr) {
    report(WRITE_ERROR, here(), "no tokens detected. try again.");
    return;
  }
  const Command* command = find_command(console, word);
  if (command == nullptr) {
    report(WRITE_ERROR, here(), "bad command %s", word);
    return;
  }
  Request request = {};
  if (!take_arguments(*command, words, request)) return;
  if (command->required > 0) resolve_adapter(console, words, request);
  command->run(console, request);
}

bool input_is_exhausted() { return std::feof(stdin) != 0 || std::ferror(stdin) != 0; }

void run_loop(Console& console) {
  InputLine line;
  while (!console.done) {
    std::fputs("$", stdout);
    std::fflush(stdout);
    if (line.read()) {
      run_line(console, line.text());
    } else {
      report(WRITE_ERROR, here(), "error reading user input. try again.");
      // Nothing more can come: leave as after a quit word.
      if (input_is_exhausted()) console.done = true;
    }
  }
}

bool release_is_nt4() {
  OsIdentity identity;
  uname(identity);
  return equals_ignoring_case(identity.release, "NT 4.0");
}

}  // namespace

void run_console(System& system) {
  Console console = {system, release_is_nt4(), false};
  run_loop(console);
  write_info("done.");
}

int run_kadrix(int argument_count, const char* const* arguments) {
  System system;
  if (argument_count == 2 && equals_ignoring_case(arguments[1], "print")) {
    system.print_report();
  } else {
    run_console(system);
  }
  return 0;
}

// ---- Stress test ------------------------------------------------------------------------------

namespace {

/// The text of an address whose numbers may be any 32-bit values.
struct AddressText {
  char text[48];
};

/// The run of addresses of a stress test: the last octet goes up to 254 and restarts at 1, the two
/// before it go from 0 to 255, the first has no bound.
class AddressRun {
 public:
  explicit AddressRun(const std::int32_t (&start)[4])
      : a_(start[0]), b_(start[1]), c_(start[2]), d_(start[3]) {}

  AddressText take() {
    AddressText address;
    std::snprintf(address.text, sizeof address.text, "%d.%d.%d.%d", static_cast<int>(a_),
                  static_cast<int>(b_), static_cast<int>(c_), static_cast<int>(d_));
    advance();
    return address;
  }

 private:
  void advance() {
    if (++d_ < 255) return;
    d_ = 1;
    if (++c_ <= 255) return;
    c_ = 0;
    if (++b_ <= 255) return;
    b_ = 0;
    ++a_;
  }

  // Wider than the numbers read, so that the step from the largest of them is one.
  std::int64_t a_, b_, c_, d_;
};

/// What an address of the list takes, in the list and then in the tables of tool and host, in
/// bytes.
constexpr std::uint64_t ADDRESS_COST = 512;

/// Whether memory is short of what `count` addresses take. A system that promises memory it does
/// not have would end the program later; one that does not say is taken at its word.
bool exceeds_memory(std::size_t count) {
  MEMORYSTATUS status = {};
  status.dwLength = sizeof status;
  GlobalMemoryStatus(&status);
  const std::uint64_t available = std::uint64_t{status.dwAvailPhys} + status.dwAvailPageFile;
  return available != 0 && std::uint64_t{count} * ADDRESS_COST > available;
}

/// The list of the first `count` addresses, or null when it is more than memory holds.
std::unique_ptr<AddressText[]> make_address_list(const std::int32_t (&start)[4],
                                                 std::size_t count) {
  if (exceeds_memory(count)) return nullptr;
  std::unique_ptr<AddressText[]> list(new (std::nothrow) AddressText[count]);
  if (list == nullptr) return nullptr;
  AddressRun run(start);
  std::generate_n(list.get(), count, [&run] { return run.take(); });
  return list;
}

int fail_stress(ReportSite site, const char* text) {
  report(WRITE_ERROR, site, "%s", text);
  return -1;
}

/// Tells in the console's title how far a stress test is, and puts the title of before back.
class Progress {
 public:
  Progress(std::int32_t iterations, std::size_t addresses)
      : iterations_(iterations), addresses_(addresses) {}
  ~Progress() {
    if (is_shown_) SetConsoleTitleA(before_);
  }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void begin(std::int32_t iteration, const char* work) {
    iteration_ = iteration;
    work_ = work;
    done_ = 0;
  }

  /// Another address is done. Shown at most ten times a second.
  void step() {
    ++done_;
    const auto now = Clock::now();
    if (now - shown_ < std::chrono::milliseconds(100)) return;
    shown_ = now;
    if (!is_shown_) GetConsoleTitleA(before_, sizeof before_);
    is_shown_ = true;
    char title[160];
    std::snprintf(title, sizeof title, "stress %d of %d: %s %s of %s",
                  static_cast<int>(iteration_ + 1), static_cast<int>(iterations_), work_,
                  Grouped(done_).text, Grouped(addresses_).text);
    SetConsoleTitleA(title);
  }

 private:
  using Clock = std::chrono::steady_clock;

  /// A number with a comma before every third digit.
  struct Grouped {
    char text[32];

    explicit Grouped(std::size_t number) {
      char digits[24];
      const int count = std::snprintf(digits, sizeof digits, "%zu", number);
      char* at = text;
      for (int i = 0; i < count; ++i) {
        if (i > 0 && (count - i) % 3 == 0) *at++ = ',';
        *at++ = digits[i];
      }
      *at = '\0';
    }
  };

  char before_[4096] = "";
  bool is_shown_ = false;
  std::int32_t iterations_;
  std::size_t addresses_;
  std::int32_t iteration_ = 0;
  const char* work_ = "";
  std::size_t done_ = 0;
  Clock::time_point shown_ = {};
};

int add_all(System& system, const char* name, std::span<const AddressText> list, const char* mask,
            Progress& progress) {
  write_info("   adding addresses");
  for (const AddressText& address : list) {
    if (system.add_address(name, address.text, mask) != 0) {
      report(CLOSE_ERROR, here(), "error adding address %s,%s.", address.text, mask);
      return -1;
    }
    progress.step();
  }
  return 0;
}

int delete_all(System& system, const char* name, std::span<const AddressText> list,
               Progress& progress) {
  write_info("   deleting addresses");
  for (const AddressText& address : list) {
    if (system.delete_address(name, address.text) != 0) {
      report(CLOSE_ERROR, here(), "error deleting address %s", address.text);
      return -1;
    }
    progress.step();
  }
  return 0;
}

}  // namespace

int run_stress(System& system, const char* name, const char* iterations, const char* addresses,
               const char* start, const char* mask) {
  const std::int32_t iteration_count = decimal_value(iterations);
  const auto address_count = static_cast<std::size_t>(std::max(decimal_value(addresses), 0));
  std::int32_t numbers[4] = {};
  if (scan_quad(start, numbers) != 4) {
    return fail_stress(here(), "bad ip-address format. (e.g. 192.9.200.1)");
  }
  if (numbers[3] >= 255) {
    return fail_stress(here(), "bad ip-address. last octet should be < 255");
  }
  const auto list = make_address_list(numbers, address_count);
  if (list == nullptr) return fail_stress(here(), "not enough memory for the address list.");
  const std::span<const AddressText> run(list.get(), address_count);
  Progress progress(iteration_count, address_count);
  for (std::int32_t k = 0; k < iteration_count; ++k) {
    write_info("Iteration %d...", static_cast<int>(k));
    progress.begin(k, "adding");
    if (add_all(system, name, run, mask, progress) != 0) return -1;
    progress.begin(k, "deleting");
    if (delete_all(system, name, run, progress) != 0) return -1;
    write_info("------");
  }
  return 0;
}

#include "brenlo/src/kadrix.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>

#include "base/find.h"
#include "base/not_copied.h"
#include "base/text.h"
#include "shared/include/os_identity.h"
#include "shared/include/utils.h"
#include "shared/include/vmk_errmsg.h"

namespace {

constexpr int LINE_BUFFER_SIZE = 1024;
constexpr int MAX_ARGUMENTS = 4;

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

// ---- Commands ---------------------------------------------------------------------------------

struct Prompt;

/// What a command works with: its required words, and the adapter name or null.
struct Request {
  const char* words[MAX_ARGUMENTS];
  const char* adapter;
};

struct Command {
  const char* words[3];
  const char* help;       ///< how its line of the help begins; null for none
  const char* arguments;  ///< how that line goes on; with the word before them, the usage
  int required;           ///< the number of words it needs
  void (*run)(Prompt& prompt, const Request& request);
};

struct Prompt {
  System& system;
  bool done;
};

/// Whether "purge" is a command on this host; settled once, before the first prompt.
bool purge_available = false;

void add(Prompt& prompt, const Request& request) {
  const auto& [address, mask, unused1, unused2] = request.words;
  if (prompt.system.add_address(request.adapter, address, mask) == 0) {
    write_info("success.");
  } else {
    report(CLOSE_ERROR, here(), "error adding address %s,%s.", address, mask);
  }
}

template <int (System::*REMOVE)(const char* name, const char* address)>
void remove(Prompt& prompt, const Request& request) {
  const char* address = request.words[0];
  if ((prompt.system.*REMOVE)(request.adapter, address) == 0) {
    write_info("success.");
  } else {
    report(CLOSE_ERROR, here(), "error deleting address %s", address);
  }
}

constexpr auto DEL = remove<&System::delete_address>;
constexpr auto PURGE = remove<&System::purge_address>;

void stress(Prompt& prompt, const Request& request) {
  const auto& [iterations, addresses, start, mask] = request.words;
  run_stress(prompt.system, request.adapter, iterations, addresses, start, mask);
}

void print(Prompt& prompt, const Request& /*request*/) { prompt.system.print_report(); }

void quit(Prompt& prompt, const Request& /*request*/) { prompt.done = true; }

void show_help(Prompt& prompt, const Request& request);

/// Every command, in the order of the help.
constexpr Command COMMANDS[] = {
    {{"help", "?"}, "help or ?", "", 0, show_help},
    {{"print"}, "print", "", 0, print},
    {{"add"}, "add  ", "<ip-address> <subnet-mask> [<adapter-name>]", 2, add},
    {{"del"}, "del  ", "<ip-address> [<adapter-name>]", 1, DEL},
    {{"purge"}, "purge ", "<ip-address> [<adapter-name>]", 1, PURGE},
    {{"quit", "exit", "."}, "quit or exit or .", "", 0, quit},
    {{"stress"},
     nullptr,
     "<num-iterations> <num-addresses> <start-address> <subnet-mask> [<adapter-name>]",
     4,
     stress},
};

bool is_offered(const Command& command) { return command.run != PURGE || purge_available; }

void show_help(Prompt& /*prompt*/, const Request& /*request*/) {
  for (const Command& command : COMMANDS) {
    if (command.help == nullptr || !is_offered(command)) continue;
    write_info("%s%s", command.help, command.arguments);
  }
}

const Command* find_command(const char* word) {
  const auto answers_to = [=](const char* own) {
    return own != nullptr && equals_ignoring_case(own, word);
  };
  return find_where(COMMANDS, [&](const Command& candidate) {
    return is_offered(candidate) && std::ranges::any_of(candidate.words, answers_to);
  });
}

/// Cuts the words that the command needs; false, after a report, when one is missing.
bool cut_arguments(const Command& command, char*& line, Request& request) {
  for (int i = 0; i < command.required; ++i) {
    request.words[i] = cut_word(line);
    if (request.words[i] != nullptr) continue;
    report(BEGIN_ERROR, here(), "%s %s", command.words[0], command.arguments);
    report(CLOSE_ERROR, here(), "insufficient number of parameters.");
    return false;
  }
  return true;
}

/// Announces the adapter that the command names, or lists them all, which settles the first active
/// one.
void resolve_adapter(Prompt& prompt, const char* remainder, Request& request) {
  request.adapter = *remainder != '\0' ? remainder : nullptr;
  if (request.adapter != nullptr) {
    write_info("Using [%s] as the network interface", request.adapter);
  } else {
    prompt.system.list_adapters();
  }
}

void run_line(Prompt& prompt, char* line) {
  const char* const word = cut_word(line);
  if (word == nullptr) {
    report(WRITE_ERROR, here(), "no tokens detected. try again.");
    return;
  }
  const Command* command = find_command(word);
  if (command == nullptr) {
    report(WRITE_ERROR, here(), "bad command %s", word);
    return;
  }
  Request request = {};
  if (!cut_arguments(*command, line, request)) return;
  if (command->required > 0) resolve_adapter(prompt, line, request);
  command->run(prompt, request);
}

bool input_is_exhausted() { return std::feof(stdin) != 0 || std::ferror(stdin) != 0; }

void run_loop(Prompt& prompt) {
  InputLine line;
  while (!prompt.done) {
    std::fputs("$", stdout);
    std::fflush(stdout);
    if (line.read()) {
      run_line(prompt, line.text());
    } else {
      report(WRITE_ERROR, here(), "error reading user input. try again.");
      // Nothing more can come: leave as after a quit word.
      if (input_is_exhausted()) prompt.done = true;
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
  purge_available = !release_is_nt4();
  Prompt prompt = {system, false};
  run_loop(prompt);
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

/// As many as a host of any kind may be asked for; what they take of memory is then bounded.
constexpr std::int32_t MAX_ADDRESSES = 1'000'000;

/// The run of addresses of a stress test: the last octet goes up to 254 and restarts at 1, the two
/// before it go from 0 to 255, the first has no bound.
class AddressRun {
 public:
  explicit AddressRun(const std::int32_t (&start)[4]) {
    std::ranges::copy(start, octets_);
    write_text();
  }

  [[nodiscard]] const char* text() const { return text_; }

  void advance() {
    if (++octets_[3] >= 255) {
      octets_[3] = 1;
      ++octets_[2];
    }
    for (int i : {2, 1}) {
      if (octets_[i] <= 255) continue;
      octets_[i] = 0;
      ++octets_[i - 1];
    }
    write_text();
  }

 private:
  void write_text() {
    const auto octet = [this](int i) { return static_cast<int>(octets_[i]); };
    std::snprintf(text_, sizeof text_, "%d.%d.%d.%d", octet(0), octet(1), octet(2), octet(3));
  }

  // Wider than the numbers read, so that the step from the largest of them is one.
  std::int64_t octets_[4];
  char text_[48];
};

int fail_stress(ReportSite site, const char* text) { return report(WRITE_ERROR, site, "%s", text); }

// ---- Interruption -----------------------------------------------------------------------------

enum class Interruption { IMPOSSIBLE, POSSIBLE, WANTED };

/// Written by whatever handles signals, in whichever thread or moment.
std::atomic<Interruption> interruption = Interruption::IMPOSSIBLE;
static_assert(std::atomic<Interruption>::is_always_lock_free);

/// While it lives, a stress test can be interrupted.
class Interruptible : NotCopied {
 public:
  Interruptible() { interruption = Interruption::POSSIBLE; }
  ~Interruptible() { interruption = Interruption::IMPOSSIBLE; }

  [[nodiscard]] bool is_wanted() const { return interruption == Interruption::WANTED; }
};

// ---- Waits ------------------------------------------------------------------------------------

/// While it lives, the platform's waits are as exact as it can make them; a millisecond may
/// otherwise take fifteen. Hosts that lack the library wait as they do.
class FineWaits : NotCopied {
 public:
  FineWaits() : library_(LoadLibraryA("winmm")) { call("timeBeginPeriod"); }
  ~FineWaits() {
    call("timeEndPeriod");
    if (library_ != nullptr) FreeLibrary(library_);
  }

 private:
  void call(const char* name) const {
    constexpr UINT MILLISECONDS = 1;
    using SetPeriod = UINT(WINAPI*)(UINT period);
    if (library_ == nullptr) return;
    const auto set_period =
        reinterpret_cast<SetPeriod>(reinterpret_cast<void*>(GetProcAddress(library_, name)));
    if (set_period != nullptr) static_cast<void>(set_period(MILLISECONDS));
  }

  HMODULE library_;
};

// ---- Progress ---------------------------------------------------------------------------------

/// Tells in the console's title how far a stress test is, and puts the title of before back.
class Progress : NotCopied {
 public:
  Progress(std::int32_t iterations, std::int32_t addresses)
      : iterations_(iterations), addresses_(addresses) {}
  ~Progress() {
    if (is_shown_) SetConsoleTitleA(before_);
  }

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
    std::snprintf(title, sizeof title, "stress %d of %d: %s %d of %d",
                  static_cast<int>(iteration_ + 1), static_cast<int>(iterations_), work_,
                  static_cast<int>(done_), static_cast<int>(addresses_));
    SetConsoleTitleA(title);
  }

 private:
  using Clock = std::chrono::steady_clock;

  char before_[4096] = "";
  bool is_shown_ = false;
  std::int32_t iterations_;
  std::int32_t addresses_;
  std::int32_t iteration_ = 0;
  const char* work_ = "";
  std::int32_t done_ = 0;
  Clock::time_point shown_ = {};
};

// ---- The test ---------------------------------------------------------------------------------

/// What the parts of one test share.
struct StressTest {
  System& system;
  const char* adapter;
  const char* mask;
  AddressRun first;
  std::int32_t count;
  Progress progress;
  Interruptible interruptible = {};
  FineWaits fine_waits = {};
};

/// Does something with each address of the run; -1 when that fails or the test is interrupted.
template <typename Action>
int for_each_address(StressTest& test, Action action) {
  AddressRun address = test.first;
  for (std::int32_t i = 0; i < test.count && !test.interruptible.is_wanted(); ++i) {
    if (action(address.text()) != 0) return -1;
    test.progress.step();
    address.advance();
  }
  return test.interruptible.is_wanted() ? fail_stress(here(), "stress test interrupted.") : 0;
}

int add_all(StressTest& test) {
  write_info("   adding addresses");
  return for_each_address(test, [&test](const char* address) {
    if (test.system.add_address(test.adapter, address, test.mask) == 0) return 0;
    return report(CLOSE_ERROR, here(), "error adding address %s,%s.", address, test.mask);
  });
}

int delete_all(StressTest& test) {
  write_info("   deleting addresses");
  return for_each_address(test, [&test](const char* address) {
    if (test.system.delete_address(test.adapter, address) == 0) return 0;
    return report(CLOSE_ERROR, here(), "error deleting address %s", address);
  });
}

}  // namespace

bool interrupt_stress() {
  Interruption expected = Interruption::POSSIBLE;
  return interruption.compare_exchange_strong(expected, Interruption::WANTED);
}

int run_stress(System& system, const char* name, const char* iterations, const char* addresses,
               const char* start, const char* mask) {
  const std::int32_t iteration_count = decimal_value(iterations);
  const std::int32_t address_count = decimal_value(addresses);
  std::int32_t numbers[4] = {};
  if (scan_quad(start, numbers) != 4) {
    return fail_stress(here(), "bad ip-address format. (e.g. 192.9.200.1)");
  }
  if (numbers[3] >= 255) {
    return fail_stress(here(), "bad ip-address. last octet should be < 255");
  }
  if (address_count > MAX_ADDRESSES) {
    return fail_stress(here(), "not enough memory for the address list.");
  }
  StressTest test = {system,        name,
                     mask,          AddressRun(numbers),
                     address_count, Progress(iteration_count, address_count)};
  for (std::int32_t k = 0; k < iteration_count; ++k) {
    write_info("Iteration %d...", static_cast<int>(k));
    test.progress.begin(k, "adding");
    if (add_all(test) != 0) return -1;
    test.progress.begin(k, "deleting");
    if (delete_all(test) != 0) return -1;
    write_info("------");
  }
  return 0;
}

// Plays a whole session again and again while memory or the platform fails, each time one step
// further on, until a run meets no failure any more. tools/torture plays all sessions.
//
//   kadrix_torture SUITE                                        names the suite's sessions
//   kadrix_torture SUITE SESSION STEP STOPS                     plays every STEPth run of a session
//   kadrix_torture SUITE SESSION TREATMENT NTH once|ever STOPS  plays one run and shows it
//
// SUITE is "allocations" or "calls"; STOPS names the file of the places that may end the program.

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "brenlo/src/kadrix.h"
#include "platform/hosts/host_description.h"
#include "torture/agreement.h"
#include "torture/failing_memory.h"
#include "torture/failing_platform.h"
#include "torture/sessions.h"
#include "torture/verdict.h"

/// Messages of all runs carry one time.
extern "C" std::time_t time(std::time_t* now) noexcept {
  constexpr std::time_t NOON = 1'700'000'000;
  if (now != nullptr) *now = NOON;
  return NOON;
}

/// What the sanitizer keeps back of released memory is copied for every run: a little is enough for
/// runs as short as these.
extern "C" const char* __asan_default_options() {
  return "quarantine_size_mb=2:malloc_context_size=4";
}

namespace {

constexpr unsigned LONGEST_RUN = 30;  // seconds

struct Attack {
  const char* name;
  std::optional<Treatment> treatment;  ///< of a call; nothing: memory fails
  Disturbed disturbed;
};

constexpr Attack MEMORY_ATTACKS[] = {{"memory", std::nullopt, Disturbed::A_CALL}};
constexpr Attack CALL_ATTACKS[] = {{"fail", Treatment::FAIL, Disturbed::A_CALL},
                                   {"raise", Treatment::RAISE, Disturbed::A_CALL},
                                   {"grown", Treatment::GROWN, Disturbed::A_TABLE},
                                   {"shrunk", Treatment::SHRUNK, Disturbed::A_TABLE},
                                   {"cut", Treatment::CUT, Disturbed::A_TABLE},
                                   {"unterminated", Treatment::UNTERMINATED, Disturbed::A_TABLE}};

std::span<const Attack> attacks_of(std::string_view suite) {
  if (suite == "allocations") return MEMORY_ATTACKS;
  return CALL_ATTACKS;
}

struct Disturbance {
  const Attack* attack;
  std::uint64_t nth;
  bool lasting;
};

// Nothing here writes through stdout: a run inherits what its buffer holds, and would allocate
// none.

/// How many failures the run at hand met: written by its process, read by this one.
std::uint64_t& failures_met() {
  static auto& met = *static_cast<std::uint64_t*>(mmap(
      nullptr, sizeof(std::uint64_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  return met;
}

/// A file in memory.
class MemoryFile {
 public:
  explicit MemoryFile(const std::string& text) : descriptor_(memfd_create("torture", MFD_CLOEXEC)) {
    if (write(descriptor_, text.data(), text.size()) < 0) std::perror("write");
  }
  ~MemoryFile() { close(descriptor_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  [[nodiscard]] int descriptor() const { return descriptor_; }
  void rewind() const { lseek(descriptor_, 0, SEEK_SET); }
  void clear() const {
    if (ftruncate(descriptor_, 0) == 0) rewind();
  }

  [[nodiscard]] std::string text() const {
    std::string text(static_cast<std::size_t>(lseek(descriptor_, 0, SEEK_END)), '\0');
    const ssize_t length = pread(descriptor_, text.data(), text.size(), 0);
    text.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
    return text;
  }

 private:
  int descriptor_;
};

// ---- One run, in a process of its own ---------------------------------------------------------

void disturb(const Disturbance& disturbance, std::uint64_t& met) {
  const auto& [attack, nth, lasting] = disturbance;
  if (attack == nullptr) return;
  if (attack->treatment) choose_treatment(*attack->treatment);
  Schedule& schedule = attack->treatment ? treated_calls() : failing_allocations();
  schedule.start(nth, lasting, met);
}

void compare_with_host(const System& system, const std::vector<HostAddress>& before) {
  const Truce memory(failing_allocations());
  const Truce platform(treated_calls());
  const std::string lines = disagreements(system, current_host(), before);
  std::fputs(lines.c_str(), stderr);
}

[[noreturn]] void play(const Session& session, const std::string& folder,
                       const Disturbance& disturbance, std::uint64_t& met) {
  alarm(LONGEST_RUN);
  for (const auto& [name, value] : session.environment) setenv(name, value.c_str(), 1);
  std::vector<HostAddress> before;
  if (!session.host.empty()) {
    install_host(std::make_unique<FailingHost>(read_description(host_file(session.host))));
    before = standing_addresses(current_host());
  } else {
    // The session chooses its host itself, which may fail to be laid out. This is another one, and
    // so is the one that was chosen before main.
    install_host(nullptr);
    before = standing_addresses(current_host());
    install_host(nullptr);
  }
  disturb(disturbance, met);
  if (session.before_system != nullptr) session.before_system(folder);
  {
    System system;
    if (session.before_typing != nullptr) session.before_typing(system, folder);
    run_console(system);
    compare_with_host(system, before);
  }
  std::exit(0);
}

/// A session with the files that it reads and writes.
class Stage {
 public:
  Stage(const Session& session, const std::string& folder)
      : session_(session), folder_(folder), input_(session.typed), output_("") {}

  [[nodiscard]] Outcome run(const Disturbance& disturbance) {
    if (session_.is_live()) lay_out_addresses();
    input_.rewind();
    output_.clear();
    failures_met() = 0;
    const pid_t child = fork();
    if (child < 0) {
      std::perror("fork");
      std::_Exit(1);
    }
    if (child == 0) {
      dup2(input_.descriptor(), STDIN_FILENO);
      dup2(output_.descriptor(), STDOUT_FILENO);
      dup2(output_.descriptor(), STDERR_FILENO);
      play(session_, folder_, disturbance, failures_met());
    }
    Outcome outcome;
    waitpid(child, &outcome.status, 0);
    outcome.text = output_.text();
    return outcome;
  }

 private:
  const Session& session_;
  const std::string& folder_;
  MemoryFile input_;
  MemoryFile output_;
};

// ---- All runs of a session --------------------------------------------------------------------

struct Tally {
  int runs = 0;
  int stopped = 0;
  int broken = 0;
};

class Torture {
 public:
  Torture(std::string suite, const Session& session, const std::string& folder,
          const std::string& stops)
      : suite_(std::move(suite)), session_(session), stage_(session, folder) {
    if (suite_ == "allocations") stops_ = read_stops(stops);
    undisturbed_ = stage_.run({}).text;
  }

  /// Counts, and a line for each place that may stop the session and did.
  int play_all(std::uint64_t step) {
    for (const Attack& attack : attacks_of(suite_)) {
      for (const bool lasting : {false, true}) {
        for (Disturbance next = {&attack, 1, lasting}; plays_on(next); next.nth += step) {
        }
      }
    }
    dprintf(STDOUT_FILENO, "= %d %d %d\n", tally_.runs, tally_.stopped, tally_.broken);
    return tally_.runs > 0 && tally_.broken == 0 ? 0 : 1;
  }

  int play_one(const Disturbance& disturbance) {
    const Outcome outcome = stage_.run(disturbance);
    const std::string fault = judge(outcome, disturbance);
    dprintf(STDOUT_FILENO, "%s\nstatus %x, %s, %s\n", outcome.text.c_str(),
            static_cast<unsigned>(outcome.status),
            failures_met() > 0 ? "met the failure" : "met no failure",
            fault.empty() ? "keeps its promises" : fault.c_str());
    return fault.empty() && failures_met() > 0 ? 0 : 1;
  }

 private:
  [[nodiscard]] std::string judge(const Outcome& outcome, const Disturbance& disturbance) const {
    return find_fault(outcome, undisturbed_, stops_,
                      failures_met() > 0 ? disturbance.attack->disturbed : Disturbed::NOTHING);
  }

  /// Plays one run; false once one keeps its promises without meeting a failure.
  bool plays_on(const Disturbance& disturbance) {
    const Outcome outcome = stage_.run(disturbance);
    const std::string fault = judge(outcome, disturbance);
    const bool met = failures_met() > 0;
    if (!met && fault.empty()) return false;
    ++tally_.runs;
    if (!fault.empty()) {
      ++tally_.broken;
      dprintf(STDOUT_FILENO, "%s\n  again: tools/torture %s %s %s %llu %s\n", fault.c_str(),
              suite_.c_str(), session_.name, disturbance.attack->name,
              static_cast<unsigned long long>(disturbance.nth),
              disturbance.lasting ? "ever" : "once");
    } else if (outcome.status != 0) {
      ++tally_.stopped;
      const std::size_t stop = find_stop(outcome.text, stops_);
      if (stop < stops_.size()) {
        dprintf(STDOUT_FILENO, "met %s %s\n", stops_[stop].module.c_str(),
                stops_[stop].reason.c_str());
      }
    }
    return met;
  }

  std::string suite_;
  const Session& session_;
  Stage stage_;
  std::vector<Stop> stops_;
  std::string undisturbed_;
  Tally tally_;
};

/// Whether a suite plays a session: the platform's calls are treated on simulated hosts alone.
bool plays(std::string_view suite, const Session& session) {
  return suite == "allocations" || !session.host.empty();
}

/// A folder of this process's own.
class Folder {
 public:
  /// The path has the same length each time, or strings would be allocated at other places.
  Folder() : path_("/tmp/kadrix-torture-" + std::to_string(10'000'000 + getpid())) {
    std::filesystem::create_directory(path_);
  }
  ~Folder() { std::filesystem::remove_all(path_); }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace

int main(int argument_count, char** arguments) {
  const std::vector<std::string> words(arguments + 1, arguments + argument_count);
  const Folder folder;
  const std::vector<Session> sessions = all_sessions(folder.path());
  for (const Session& session : sessions) {
    if (words.empty() || !plays(words[0], session)) continue;
    if (words.size() == 1) dprintf(STDOUT_FILENO, "%s\n", session.name);
    if (words.size() < 4 || words[1] != session.name) continue;
    if (session.is_live() && !enter_namespace()) {
      std::fprintf(stderr, "%s: no network namespace here\n", session.name);
      return 1;
    }
    Torture torture(words[0], session, folder.path(), words.back());
    if (words.size() == 4) return torture.play_all(std::stoull(words[2]));
    for (const Attack& attack : attacks_of(words[0])) {
      if (words[2] != attack.name) continue;
      return torture.play_one({&attack, std::stoull(words[3]), words[4] == "ever"});
    }
  }
  return words.size() == 1 ? 0 : 2;
}

// Plays whole sessions again and again while memory or the platform fails, each time one step
// further on, until a run meets no failure any more.
//
//   kadrix_torture STOPS SUITE [--step N]              plays all of a suite, or every Nth run
//   kadrix_torture STOPS SUITE SESSION TREATMENT NTH once|ever      plays one run and shows it
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
constexpr int JOBS = 2;

struct Attack {
  const char* name;
  std::optional<Treatment> treatment;  ///< of a call; nothing: memory fails
};

constexpr Attack MEMORY_ATTACKS[] = {{"memory", std::nullopt}};
constexpr Attack CALL_ATTACKS[] = {
    {"fail", Treatment::FAIL},   {"raise", Treatment::RAISE},
    {"grown", Treatment::GROWN}, {"shrunk", Treatment::SHRUNK},
    {"cut", Treatment::CUT},     {"unterminated", Treatment::UNTERMINATED}};

std::span<const Attack> attacks_of(std::string_view suite) {
  if (suite == "allocations") return MEMORY_ATTACKS;
  return CALL_ATTACKS;
}

Tolerance tolerance_of(const Attack& attack) {
  const bool fails = attack.treatment == Treatment::FAIL || attack.treatment == Treatment::RAISE;
  return {attack.treatment.has_value(), attack.treatment.has_value() && !fails};
}

struct Disturbance {
  const Attack* attack;
  std::uint64_t nth;
  bool lasting;
};

// Nothing here writes through stdout: its buffer would be allocated once, and not in every run.

/// What the processes of the torture share.
struct Tally {
  std::uint64_t runs;
  std::uint64_t stopped;
  std::uint64_t broken;
  std::uint64_t met[JOBS];   ///< failures that the run at hand met, for each job
  std::uint64_t attacks[8];  ///< runs of each attack
  std::uint64_t stops[16];   ///< runs that each place stopped
};

Tally& shared_tally() {
  static auto& tally = *static_cast<Tally*>(
      mmap(nullptr, sizeof(Tally), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  return tally;
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
  if (!session.description.empty()) {
    install_host(
        std::make_unique<FailingHost>(parse_description(session.description, session.name)));
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
  Stage(const Session& session, const std::string& folder, std::uint64_t& met)
      : session_(session), folder_(folder), input_(session.typed), output_(""), met_(met) {}

  [[nodiscard]] Outcome run(const Disturbance& disturbance) {
    if (session_.is_live()) lay_out_addresses();
    input_.rewind();
    output_.clear();
    met_ = 0;
    const pid_t child = fork();
    if (child < 0) {
      std::perror("fork");
      std::_Exit(1);
    }
    if (child == 0) {
      dup2(input_.descriptor(), STDIN_FILENO);
      dup2(output_.descriptor(), STDOUT_FILENO);
      dup2(output_.descriptor(), STDERR_FILENO);
      play(session_, folder_, disturbance, met_);
    }
    Outcome outcome;
    waitpid(child, &outcome.status, 0);
    outcome.text = output_.text();
    return outcome;
  }

  [[nodiscard]] bool met_failure() const { return met_ > 0; }

 private:
  const Session& session_;
  const std::string& folder_;
  MemoryFile input_;
  MemoryFile output_;
  std::uint64_t& met_;
};

// ---- All runs ---------------------------------------------------------------------------------

struct Suite {
  std::string name;
  std::vector<Session> sessions;
  std::string folder;
  std::vector<Stop> stops;
  std::uint64_t step = 1;
};

void add(std::uint64_t& count) { __atomic_fetch_add(&count, 1, __ATOMIC_RELAXED); }

std::string judge(const Suite& suite, const Attack& attack, const Outcome& outcome, bool met,
                  const std::string& undisturbed) {
  return met ? find_fault(outcome, undisturbed, suite.stops, tolerance_of(attack))
             : find_difference(outcome, undisturbed);
}

/// Counts a run that ended at a place that may end it.
void count_stop(const Suite& suite, const Outcome& outcome) {
  Tally& tally = shared_tally();
  add(tally.stopped);
  const std::size_t stop = find_stop(outcome.text, suite.stops);
  if (stop < suite.stops.size()) add(tally.stops[stop]);
}

/// Plays a session with an attack at every place that is this job's.
void attack_session(const Suite& suite, const Session& session, const Attack& attack, bool lasting,
                    int job, Stage& stage, const std::string& undisturbed) {
  Tally& tally = shared_tally();
  const auto first = 1 + suite.step * static_cast<std::uint64_t>(job);
  for (std::uint64_t nth = first;; nth += suite.step * JOBS) {
    const Outcome outcome = stage.run({&attack, nth, lasting});
    const bool met = stage.met_failure();
    const std::string fault = judge(suite, attack, outcome, met, undisturbed);
    if (!met && fault.empty()) return;
    add(tally.runs);
    add(tally.attacks[&attack - attacks_of(suite.name).data()]);
    if (fault.empty()) {
      if (outcome.status != 0) count_stop(suite, outcome);
      continue;
    }
    add(tally.broken);
    dprintf(STDOUT_FILENO, "%s\n  again: tools/torture %s %s %s %llu %s\n", fault.c_str(),
            suite.name.c_str(), session.name, attack.name, static_cast<unsigned long long>(nth),
            lasting ? "ever" : "once");
    if (!met) return;
  }
}

/// Whether a suite plays a session: the platform's calls are treated on simulated hosts alone.
bool plays(const Suite& suite, const Session& session) {
  return suite.name == "allocations" || !session.description.empty();
}

void run_job(const Suite& suite, int job) {
  for (const Session& session : suite.sessions) {
    if (!plays(suite, session)) continue;
    if (session.is_live() && !enter_namespace()) {
      dprintf(STDOUT_FILENO, "%s: no network namespace here\n", session.name);
      std::exit(1);
    }
    Stage stage(session, suite.folder, shared_tally().met[job]);
    const Outcome undisturbed = stage.run({});
    const std::string fault = find_fault(undisturbed, undisturbed.text, {}, {});
    if (!fault.empty()) {
      dprintf(STDOUT_FILENO, "%s, undisturbed: %s\n%s", session.name, fault.c_str(),
              undisturbed.text.c_str());
      std::exit(1);
    }
    for (const Attack& attack : attacks_of(suite.name)) {
      for (const bool lasting : {false, true}) {
        attack_session(suite, session, attack, lasting, job, stage, undisturbed.text);
      }
    }
  }
}

/// Whether every attack was made, and every place that may stop the program did.
bool reaches_all(const Suite& suite) {
  const Tally& tally = shared_tally();
  bool all = true;
  const auto expect = [&all](std::uint64_t runs, const std::string& what) {
    if (runs > 0) return;
    dprintf(STDOUT_FILENO, "never met: %s\n", what.c_str());
    all = false;
  };
  const auto attacks = attacks_of(suite.name);
  for (std::size_t i = 0; i < attacks.size(); ++i) expect(tally.attacks[i], attacks[i].name);
  // A part of the runs need not come past all places.
  for (std::size_t i = 0; suite.step == 1 && i < suite.stops.size(); ++i) {
    expect(tally.stops[i], suite.stops[i].module + " " + suite.stops[i].reason);
  }
  return all;
}

int run_suite(const Suite& suite) {
  const Tally& tally = shared_tally();
  pid_t jobs[JOBS];
  for (int job = 0; job < JOBS; ++job) {
    jobs[job] = fork();
    if (jobs[job] != 0) continue;
    run_job(suite, job);
    std::_Exit(0);
  }
  bool completed = true;
  for (const pid_t job : jobs) {
    int status = 0;
    waitpid(job, &status, 0);
    completed = completed && status == 0;
  }
  dprintf(STDOUT_FILENO, "%s: %llu runs, %llu ended at a place that may, %llu broken\n",
          suite.name.c_str(), static_cast<unsigned long long>(tally.runs),
          static_cast<unsigned long long>(tally.stopped),
          static_cast<unsigned long long>(tally.broken));
  return completed && reaches_all(suite) && tally.broken == 0 ? 0 : 1;
}

int run_one(const Suite& suite, const char* const* words) {
  const auto fail = [](const char* what, const char* which) {
    std::fprintf(stderr, "no such %s: %s\n", what, which);
    return 2;
  };
  const Session* session = nullptr;
  for (const Session& it : suite.sessions) {
    if (it.name == std::string_view(words[0])) session = &it;
  }
  if (session == nullptr) return fail("session", words[0]);
  const Attack* attack = nullptr;
  for (const Attack& it : attacks_of(suite.name)) {
    if (it.name == std::string_view(words[1])) attack = &it;
  }
  if (attack == nullptr) return fail("treatment", words[1]);
  if (session->is_live() && !enter_namespace()) return fail("thing here", "a network namespace");
  Stage stage(*session, suite.folder, shared_tally().met[0]);
  const Outcome undisturbed = stage.run({});
  const Disturbance disturbance = {attack, std::strtoull(words[2], nullptr, 10),
                                   std::string_view(words[3]) == "ever"};
  const Outcome outcome = stage.run(disturbance);
  const std::string fault = judge(suite, *attack, outcome, stage.met_failure(), undisturbed.text);
  dprintf(STDOUT_FILENO, "%s\nstatus %x, %s, %s\n", outcome.text.c_str(),
          static_cast<unsigned>(outcome.status),
          stage.met_failure() ? "met the failure" : "met no failure",
          fault.empty() ? "keeps its promises" : fault.c_str());
  if (!fault.empty()) return 1;
  return stage.met_failure() ? 0 : 2;
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
  const std::vector<std::string_view> words(arguments, arguments + argument_count);
  const auto number = [&](int at) { return std::strtoull(arguments[at], nullptr, 10); };
  const bool stepping = argument_count == 5 && words[3] == "--step" && number(4) > 0;
  const bool single =
      argument_count == 7 && number(5) > 0 && (words[6] == "once" || words[6] == "ever");
  if (argument_count < 3 || (words[2] != "allocations" && words[2] != "calls") ||
      (argument_count != 3 && !single && !stepping)) {
    std::fputs(
        "usage: kadrix_torture STOPS allocations|calls [--step N | SESSION TREATMENT NTH "
        "once|ever]\n",
        stderr);
    return 2;
  }
  const Folder folder;
  Suite suite = {arguments[2], all_sessions(folder.path()), folder.path(),
                 read_stops(arguments[1])};
  if (suite.name == "calls") suite.stops.clear();
  if (stepping) suite.step = number(4);
  return single ? run_one(suite, arguments + 3) : run_suite(suite);
}

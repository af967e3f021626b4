// Plays a whole session again and again while memory or the platform fails, each time one step
// further on, until a run meets no failure any more. tools/torture plays all sessions.
//
//   kadrix_torture                                  names what it plays: SESSION TREATMENT, a line
//   each kadrix_torture STEP SESSION TREATMENT           plays every STEPth run, and tells what
//   came of each kadrix_torture SESSION TREATMENT NTH once|ever  plays one run and shows it

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "brenlo/src/kadrix.h"
#include "platform/simulated/host_description.h"
#include "shared/include/vmk_errmsg.h"
#include "tests/support/program.h"
#include "torture/agreement.h"
#include "torture/disturbance.h"
#include "torture/failing_platform.h"
#include "torture/sessions.h"

namespace {

constexpr unsigned LONGEST_RUN = 30;  // seconds

constexpr std::pair<const char*, Treatment> TREATMENTS[] = {
    {"memory", Treatment::MEMORY},
    {"fail", Treatment::FAIL},
    {"raise", Treatment::RAISE},
    {"grown", Treatment::GROWN},
    {"shrunk", Treatment::SHRUNK},
    {"cut", Treatment::CUT},
    {"unterminated", Treatment::UNTERMINATED},
};

// ---- One run, in a process of its own ---------------------------------------------------------

/// Tells where tool and host disagree. Where the host lied, addresses of the tool's own may seem to
/// be gone.
void compare_with_host(const System& system, const std::vector<HostAddress>& before) {
  const bool armed = std::exchange(disturbance.armed, false);
  std::istringstream lines(disagreements(system, current_host(), before));
  const bool lied = disturbance.nth != 0 && disturbance.treatment >= Treatment::GROWN;
  for (std::string line; std::getline(lines, line);) {
    if (!lied || !line.starts_with("UNCLAIMED")) std::fprintf(stderr, "%s\n", line.c_str());
  }
  disturbance.armed = armed;
}

[[noreturn]] void play(const TortureSession& session) {
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
  disturbance.armed = true;
  if (session.before_system != nullptr) session.before_system();
  {
    System system;
    if (session.before_typing != nullptr) session.before_typing(system);
    run_console(system);
    compare_with_host(system, before);
  }
  std::exit(0);
}

/// What a run did: all that it wrote, standard output and standard error in the order of writing,
/// and how it ended (the status of wait).
struct RunOutcome {
  std::string text;
  int status = 0;
};

// ---- What may come of a run -------------------------------------------------------------------

constexpr int STOPPED = 3;
constexpr int NO_HOST = 2;

/// A text without what differs from run to run: pointers and times.
std::string comparable(const std::string& text) {
  static const std::regex VARYING("=0x[0-9A-F]{8}|[0-9]{2}/[0-9]{2}\\.[0-9:]{8}");
  return std::regex_replace(text, VARYING, "#");
}

/// What ended a run for want of memory, in the words of stops.txt.
std::string stop_of(const RunOutcome& outcome) {
  static const std::regex REPORT("ERROR (\\S+):[0-9]+: assertion failed - (.*)\n$");
  std::smatch found;
  const bool is_stop = WEXITSTATUS(outcome.status) == STOPPED;
  if (is_stop && std::regex_search(outcome.text, found, REPORT)) {
    return found.str(1) + " " + found.str(2);
  }
  const bool had_begun = outcome.text.find('$') != std::string::npos;
  return WEXITSTATUS(outcome.status) == NO_HOST && !had_begun ? "no host" : "nothing known";
}

/// Once memory ran out for a message, every message must end with the notice.
bool keeps_notice(const std::string& text) {
  const std::string notice(OUT_OF_MEMORY_NOTICE, sizeof OUT_OF_MEMORY_NOTICE - 2);
  bool seen = false;
  bool owed = false;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    line.erase(0, line.find_first_not_of('$'));
    if (line == notice) {
      seen = true;
      owed = false;
    } else if (line.starts_with("ERROR ") || line.starts_with("WARN  ") ||
               line.starts_with("DEBUG ") || line.starts_with("INFO  ")) {
      if (owed) return false;
      owed = seen;
    }
  }
  return !owed;
}

/// Whether a text tells of failures that another does not.
bool tells_more(const std::string& text, const std::string& usual) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    line.erase(0, line.find_first_not_of('$'));
    const bool tells =
        line.starts_with("ERROR ") || line.starts_with("WARN ") || line.starts_with("      ");
    if (tells && usual.find(line) == std::string::npos) return true;
  }
  return false;
}

// ---- All runs of a session --------------------------------------------------------------------

class Torture {
 public:
  Torture(const TortureSession& session, const TestFolder& folder, std::string treatment)
      : session_(session), folder_(folder), treatment_(std::move(treatment)) {
    if (disturbance.treatment == Treatment::MEMORY) {
      std::ifstream stream(SOURCE_ROOT "/torture/stops.txt");
      for (std::string line; std::getline(stream, line);) stops_.insert(line);
    }
    usual_ = comparable(run(0, false).text);
  }

  /// A line for each run, and for each place that may stop the session and did.
  int play_all(std::uint64_t step) {
    for (const bool lasting : {false, true}) {
      for (std::uint64_t nth = 1; plays_on(nth, lasting); nth += step) {
      }
    }
    return all_well_ ? 0 : 1;
  }

  int play_one(std::uint64_t nth, bool lasting) {
    const RunOutcome outcome = run(nth, lasting);
    const std::string fault = fault_of(outcome);
    std::printf("%s= %s\n", outcome.text.c_str(), fault.empty() ? "well" : fault.c_str());
    return fault.empty() ? 0 : 1;
  }

 private:
  [[nodiscard]] RunOutcome run(std::uint64_t nth, bool lasting) const {
    static_cast<void>(folder_.write("copy", "the same\n"));
    if (session_.layout != nullptr && std::system(session_.layout) != 0) std::exit(1);
    disturbance.nth = nth;
    disturbance.lasting = lasting;
    *disturbance.met = 0;
    const pid_t child = fork();
    if (child == 0) {
      dup2(open(typed_.c_str(), O_RDONLY | O_CLOEXEC), STDIN_FILENO);
      dup2(open("output", O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600), STDOUT_FILENO);
      dup2(STDOUT_FILENO, STDERR_FILENO);
      play(session_);
    }
    RunOutcome outcome;
    if (waitpid(child, &outcome.status, 0) != child) std::exit(1);
    outcome.text = read_file("output");
    return outcome;
  }

  /// Plays one run; false once one keeps its promises without meeting a failure.
  bool plays_on(std::uint64_t nth, bool lasting) {
    const RunOutcome outcome = run(nth, lasting);
    const std::string fault = fault_of(outcome);
    const bool met = *disturbance.met > 0;
    if (!fault.empty()) {
      all_well_ = false;
      dprintf(STDOUT_FILENO, "broken: %s\n  again: tools/torture runs %s %s %llu %s\n",
              fault.c_str(), session_.name, treatment_.c_str(),
              static_cast<unsigned long long>(nth), lasting ? "ever" : "once");
    } else if (!met) {
      return false;
    } else if (outcome.status != 0) {
      dprintf(STDOUT_FILENO, "met %s\n", stop_of(outcome).c_str());
    }
    dprintf(STDOUT_FILENO, "ran %s\n", treatment_.c_str());
    return met;
  }

  /// Why a run broke what the tool promises, or empty. Held against what the session does when
  /// nothing fails.
  [[nodiscard]] std::string fault_of(const RunOutcome& outcome) const {
    const std::string& text = outcome.text;
    if (text.find("DISAGREES") != std::string::npos) return "tool and host disagree";
    if (*disturbance.met == 0) {
      return outcome.status == 0 && comparable(text) == usual_ ? "" : "other than undisturbed";
    }
    if (WIFEXITED(outcome.status) && stops_.contains(stop_of(outcome))) return "";
    if (outcome.status != 0) return "ended with wait status " + std::to_string(outcome.status);
    if (!keeps_notice(text)) return "a message without the notice";
    if (std::count(text.begin(), text.end(), '$') !=
        std::count(usual_.begin(), usual_.end(), '$')) {
      return "the prompt did not come back";
    }
    if ((text + '$').find("$$") != std::string::npos) return "no answer";
    if (text.find("UNCLAIMED") != std::string::npos && !tells_more(comparable(text), usual_)) {
      return "an address nobody speaks of";
    }
    return "";
  }

  const TortureSession& session_;
  const TestFolder& folder_;
  std::string treatment_;
  std::string typed_ = folder_.write("typed", session_.typed);
  std::set<std::string> stops_;
  std::string usual_;
  bool all_well_ = true;
};

}  // namespace

int main(int argument_count, char** arguments) {
  // Nothing before the last run writes through stdout: a run inherits what its buffer holds.
  std::vector<std::string> words(arguments + 1, arguments + argument_count);
  const std::uint64_t step = words.size() == 3 ? std::stoull(words[0]) : 0;
  if (step != 0) words.erase(words.begin());
  const TestFolder folder;
  std::filesystem::current_path(folder.path());
  // How many failures a run met is written by its process, and read by this one.
  disturbance.met = static_cast<std::uint64_t*>(mmap(
      nullptr, sizeof *disturbance.met, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  for (const TortureSession& session : all_sessions(folder)) {
    for (const auto& [name, treatment] : TREATMENTS) {
      // The platform's calls are treated on simulated hosts alone.
      if (treatment != Treatment::MEMORY && session.host.empty()) continue;
      if (words.empty()) dprintf(STDOUT_FILENO, "%s %s\n", session.name, name);
      if (words.size() < 2 || words[0] != session.name || words[1] != name) continue;
      disturbance.treatment = treatment;
      Torture torture(session, folder, name);
      return step != 0 ? torture.play_all(step)
                       : torture.play_one(std::stoull(words.at(2)), words.at(3) == "ever");
    }
  }
  return words.empty() ? 0 : 2;
}

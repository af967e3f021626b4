#include "torture/verdict.h"

#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <initializer_list>
#include <sstream>
#include <string_view>

#include "shared/include/vmk_errmsg.h"

namespace {

constexpr int STOPPED = 3;
constexpr int NO_HOST = 2;

std::vector<std::string> split(const std::string& text, char separator) {
  std::istringstream stream(text);
  std::vector<std::string> pieces;
  for (std::string piece; std::getline(stream, piece, separator);) pieces.push_back(piece);
  return pieces;
}

/// Pointers differ from run to run.
std::string without_pointers(std::string text) {
  for (std::size_t at = text.find("=0x"); at != std::string::npos; at = text.find("=0x", at + 3)) {
    std::fill_n(text.begin() + static_cast<std::ptrdiff_t>(at) + 3,
                std::min<std::size_t>(8, text.size() - at - 3), '0');
  }
  return text;
}

bool begins_message(std::string_view line) {
  constexpr std::array LEVELS = {"ERROR ", "WARN  ", "DEBUG ", "INFO  "};
  return std::any_of(LEVELS.begin(), LEVELS.end(),
                     [=](const char* level) { return line.starts_with(level); });
}

/// The line of an assertion report, apart; false when it is none.
bool take_stop(const std::string& line, Stop& stop) {
  const std::size_t colon = line.find(':');
  const std::string mark = ": assertion failed - ";
  const std::size_t at = line.find(mark);
  const std::size_t level = line.find("ERROR .\\");
  if (colon == std::string::npos || at == std::string::npos || level == std::string::npos) {
    return false;
  }
  stop = {line.substr(level + 6, colon - level - 6), line.substr(at + mark.size())};
  return true;
}

/// Once memory ran out for a message, every message must end with the notice.
bool keeps_notice(const std::string& text) {
  const std::string notice(OUT_OF_MEMORY_NOTICE, sizeof OUT_OF_MEMORY_NOTICE - 2);
  bool seen = false;
  bool owed = false;
  for (std::string line : split(text, '\n')) {
    line.erase(0, line.find_first_not_of('$'));
    if (line == notice) {
      seen = true;
      owed = false;
    } else if (begins_message(line)) {
      if (owed) return false;
      owed = seen;
    }
  }
  return !owed;
}

bool is_about_address(const std::string& line) {
  return line.find("ERROR ") != std::string::npos && line.find("ddress") != std::string::npos;
}

bool holds_any(const std::string& line, std::initializer_list<const char*> words) {
  return std::any_of(words.begin(), words.end(),
                     [&](const char* word) { return line.find(word) != std::string::npos; });
}

/// Lines that tell of a shortcoming although they are no failure's: an adapter without a current
/// address, one that kept the address it was probed with, another first active one; a current
/// directory that is not known.
bool is_plain_word(const std::string& line) {
  return holds_any(line, {" [EXCLUDED - NO TCP/IP]", "  IP Address  :  ", "0.0.255.255",
                          " first active: ", "looking in /../"});
}

/// Whether a line is missing that tells by that: of an adapter that could not be made, of a name
/// that was not read.
bool misses_line(const std::string& answer, const std::string& undisturbed) {
  const auto count = [](const std::string& text) {
    const auto lines = split(text, '\n');
    return std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
      return holds_any(line, {" Adapter #", "-  #", "  Name        : "});
    });
  };
  return count(answer) < count(undisturbed);
}

template <typename Tells>
bool has_more(const std::string& lines, const std::string& others, Tells tells) {
  const auto known = split(others, '\n');
  const auto all = split(lines, '\n');
  return std::any_of(all.begin(), all.end(), [&](const std::string& line) {
    return tells(line) &&
           std::count(all.begin(), all.end(), line) > std::count(known.begin(), known.end(), line);
  });
}

/// Whether an answer says that it is not the undisturbed one.
bool tells(const std::string& answer, const std::string& undisturbed) {
  const auto fails = [](const std::string& line) {
    return line.starts_with("ERROR ") || line.starts_with("WARN ") || line.starts_with("      ") ||
           is_plain_word(line);
  };
  return has_more(answer, undisturbed, fails) || misses_line(answer, undisturbed);
}

std::string first_difference(const std::string& answer, const std::string& undisturbed) {
  const auto lines = split(answer, '\n');
  const auto usual = split(undisturbed, '\n');
  const auto end =
      lines.begin() + static_cast<std::ptrdiff_t>(std::min(lines.size(), usual.size()));
  const auto at = std::mismatch(lines.begin(), end, usual.begin()).first;
  return at != lines.end() ? *at : "it ends early";
}

/// What the first so many answers lack. Once one has told of a failure, later ones may differ too:
/// they stand on what failed.
std::string fault_of_answers(const std::vector<std::string>& answers,
                             const std::vector<std::string>& usual, std::size_t count) {
  bool told = false;
  for (std::size_t i = 0; i < count; ++i) {
    if (answers[i] == usual[i]) continue;
    if (answers[i].empty()) return "no answer";
    told = told || answers[i].find(OUT_OF_MEMORY_NOTICE) != std::string::npos ||
           tells(answers[i], usual[i]);
    if (!told) {
      return "another answer without a word: " + first_difference(answers[i], usual[i]);
    }
  }
  return "";
}

}  // namespace

std::vector<Stop> read_stops(const std::string& path) {
  std::ifstream stream(path);
  std::vector<Stop> stops;
  for (std::string line; std::getline(stream, line);) {
    if (line.empty() || line[0] == '#') continue;
    const std::size_t blank = line.find(' ');
    stops.push_back({line.substr(0, blank), line.substr(blank + 1)});
  }
  return stops;
}

std::size_t find_stop(const std::string& text, const std::vector<Stop>& stops) {
  Stop stop;
  const auto lines = split(text, '\n');
  if (lines.empty() || !take_stop(lines.back(), stop)) return stops.size();
  const auto known = std::find_if(stops.begin(), stops.end(), [&](const Stop& it) {
    return it.module == stop.module && it.reason == stop.reason;
  });
  return static_cast<std::size_t>(known - stops.begin());
}

std::string find_difference(const Outcome& outcome, const std::string& undisturbed) {
  const std::string text = without_pointers(outcome.text);
  if (outcome.status != 0) return "ended otherwise, though nothing failed";
  if (text == without_pointers(undisturbed)) return "";
  return "another answer, though nothing failed: " + first_difference(text, undisturbed);
}

std::string find_fault(const Outcome& outcome, const std::string& undisturbed,
                       const std::vector<Stop>& stops, Tolerance tolerance) {
  const std::string text = without_pointers(outcome.text);
  if (!WIFEXITED(outcome.status)) {
    return "ended by signal " + std::to_string(WTERMSIG(outcome.status));
  }
  if (text.find("DISAGREES") != std::string::npos) return "tool and host disagree";
  const auto answers = split(text.substr(0, text.find("UNCLAIMED")), '$');
  const auto usual = split(without_pointers(undisturbed), '$');
  switch (WEXITSTATUS(outcome.status)) {
    case 0: break;
    case STOPPED:
      if (find_stop(text, stops) == stops.size()) return "stopped where it may not";
      // The last answer is the one that was cut off.
      return fault_of_answers(answers, usual, std::min(answers.size(), usual.size()) - 1);
    case NO_HOST:
      return !stops.empty() && (text == "ZARVO_HOST: not enough memory\n" ||
                                text.ends_with(": cannot be read: Cannot allocate memory\n"))
                 ? ""
                 : "no host, and not for want of memory";
    default: return "ended with status " + std::to_string(WEXITSTATUS(outcome.status));
  }
  if (!keeps_notice(text)) return "a message without the notice";
  if (!tolerance.lost_claims && text.find("UNCLAIMED") != std::string::npos &&
      !has_more(text, without_pointers(undisturbed), is_about_address)) {
    return "an address nobody speaks of";
  }
  if (answers.size() != usual.size()) return "the prompt did not come back";
  return tolerance.quiet_change ? "" : fault_of_answers(answers, usual, answers.size());
}

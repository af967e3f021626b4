#include "torture/verdict.h"

#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <fstream>
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

/// Whether a line reports a failure, or a cause of one.
bool tells_of_failure(const std::string& line) {
  return line.starts_with("ERROR ") || line.starts_with("WARN ") || line.starts_with("      ");
}

/// Whether a text tells of failures that another does not.
bool tells_more(const std::string& text, const std::string& usual) {
  const auto known = split(usual, '\n');
  const auto lines = split(text, '\n');
  return text.find(OUT_OF_MEMORY_NOTICE) != std::string::npos ||
         std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
           return tells_of_failure(line) && std::count(lines.begin(), lines.end(), line) >
                                                std::count(known.begin(), known.end(), line);
         });
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

std::string find_fault(const Outcome& outcome, const std::string& undisturbed,
                       const std::vector<Stop>& stops, Disturbed disturbed) {
  const std::string text = without_pointers(outcome.text);
  const std::string usual_text = without_pointers(undisturbed);
  if (!WIFEXITED(outcome.status)) {
    return "ended by signal " + std::to_string(WTERMSIG(outcome.status));
  }
  if (text.find("DISAGREES") != std::string::npos) return "tool and host disagree";
  if (disturbed == Disturbed::NOTHING) {
    return outcome.status == 0 && text == usual_text ? "" : "other than undisturbed";
  }
  switch (WEXITSTATUS(outcome.status)) {
    case 0: break;
    case STOPPED: return find_stop(text, stops) == stops.size() ? "stopped where it may not" : "";
    case NO_HOST: return stops.empty() ? "no host, and not for want of memory" : "";
    default: return "ended with status " + std::to_string(WEXITSTATUS(outcome.status));
  }
  if (!keeps_notice(text)) return "a message without the notice";
  const auto answers = split(text, '$');
  const auto usual = split(usual_text, '$');
  if (answers.size() != usual.size()) return "the prompt did not come back";
  for (std::size_t i = 0; i < usual.size(); ++i) {
    if (answers[i].empty() && !usual[i].empty()) return "no answer";
  }
  if (disturbed != Disturbed::A_TABLE && text.find("UNCLAIMED") != std::string::npos &&
      !tells_more(text, usual_text)) {
    return "an address nobody speaks of";
  }
  return "";
}

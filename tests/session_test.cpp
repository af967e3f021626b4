// Whole sessions against the program: the files under tests/sessions say what is typed and what
// must come back, byte for byte but for times, line numbers and pointers.
//
//   === NAME               begins a session
//   %env NAME=VALUE        sets an environment variable
//   %arguments A B         starts the program with arguments
//   %host FILE             starts it on a host description below hosts/
//   %libraries A B         on a Windows runtime: the stand-ins that lie beside the program
//   %status N              expects this exit status instead of 0
//   | LINE                 a line that the description begins with; the default one follows, unless
//                          there is "%host none"
//   $LINE                  expects the prompt and types the line; "$<end>" ends the input there. A
//                          session that does not end itself is ended by "quit"
//   >LINE                  expects the line on standard output
//   ...                    stands for any lines on standard error
//   other lines            are expected on standard error; "# " at the start makes a comment

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/folder.h"
#include "tests/support/program.h"

namespace {

const std::string ROOT = SOURCE_ROOT;

const std::set<std::string> QUIT_WORDS = {"quit", "exit", "."};

struct Session {
  std::string name;
  Run run;
  std::string host;
  std::string description;
  std::string libraries = "none";
  std::string output;
  std::string errors;
  int status = 0;
  bool ended = false;
  /// Played on a Windows runtime too, where tests/windows/host.toml is laid out.
  bool both = false;
};

/// What the runner shows of a case.
void PrintTo(const Session& session, std::ostream* stream) { *stream << session.name; }

bool take_prefix(std::string& line, const std::string& prefix) {
  if (!line.starts_with(prefix)) return false;
  line.erase(0, prefix.size());
  return true;
}

void add_line(Session& session, std::string line) {
  if (line.empty() || line.starts_with("# ")) return;
  if (take_prefix(line, "%env ")) {
    session.run.environment.push_back(line);
  } else if (take_prefix(line, "%arguments ")) {
    std::istringstream words(line);
    for (std::string word; words >> word;) session.run.arguments.push_back(word);
    session.ended = true;
  } else if (take_prefix(line, "%host ")) {
    session.host = line;
  } else if (take_prefix(line, "%libraries ")) {
    session.libraries = line;
  } else if (take_prefix(line, "%status ")) {
    session.status = std::stoi(line);
    session.ended = true;
  } else if (take_prefix(line, "| ") || line == "|") {
    session.description += line + "\n";
  } else if (take_prefix(line, "$")) {
    session.output += "$";
    if (line != "<end>") session.run.input += line + "\n";
    session.ended = line == "<end>" || QUIT_WORDS.contains(line.substr(0, line.find(' ')));
  } else if (take_prefix(line, ">")) {
    session.output += line + "\n";
  } else {
    session.errors += line + "\n";
  }
}

std::vector<Session> read_sessions(std::istream& stream) {
  std::vector<Session> sessions;
  for (std::string line; std::getline(stream, line);) {
    if (take_prefix(line, "=== ")) {
      sessions.emplace_back();
      sessions.back().name = line;
    } else if (!sessions.empty()) {
      add_line(sessions.back(), line);
    }
  }
  for (Session& session : sessions) {
    if (session.ended) continue;
    add_line(session, "$quit");
    add_line(session, "INFO  @ - done.");
  }
  return sessions;
}

/// The runtime that the program runs on: KADRIX_RUNTIME names a command that takes the stand-ins,
/// comma-separated, and the program's arguments. Without it the program runs on this machine.
const char* windows_runtime() { return std::getenv("KADRIX_RUNTIME"); }

/// The sessions of tests/windows are for both; the others need a host of their own.
std::vector<Session> all_sessions() {
  std::map<std::string, bool> files;
  for (const std::string folder : {"/tests/sessions", "/tests/windows"}) {
    const bool both = folder == "/tests/windows";
    if (windows_runtime() != nullptr && !both) continue;
    std::error_code moved;  // no folder, no sessions, which the runner tells as a failure
    for (const auto& entry : std::filesystem::directory_iterator(ROOT + folder, moved)) {
      if (entry.path().extension() == ".session") files[entry.path().string()] = both;
    }
  }
  std::vector<Session> sessions;
  for (const auto& [file, both] : files) {
    std::ifstream stream(file);
    for (Session& session : read_sessions(stream)) {
      session.both = both;
      sessions.push_back(std::move(session));
    }
  }
  return sessions;
}

/// A text of the Windows runtime, whose lines all end in CR LF, with the line ends of this machine.
std::string with_plain_line_ends(const std::string& text) {
  if (windows_runtime() == nullptr) return text;
  static const std::regex NO_RETURN("(^|[^\r])\n");
  static const std::regex LINE_END("\r\n");
  return std::regex_replace(std::regex_replace(text, NO_RETURN, "$1<no CR>\r\n"), LINE_END, "\n");
}

Outcome play(const Session& session) {
  const TestFolder folder;
  Run run = session.run;
  const std::string base = session.both ? "/tests/windows/host.toml" : "/hosts/default.toml";
  if (windows_runtime() != nullptr) {
    run.program = windows_runtime();
    run.arguments.insert(run.arguments.begin(), session.libraries);
  } else if (session.both || !session.description.empty()) {
    const std::string rest = session.host.empty() ? read_file(ROOT + base) : "";
    run.environment.push_back("ZARVO_HOST=" + folder.write("host", session.description + rest));
  } else if (!session.host.empty()) {
    run.environment.push_back("ZARVO_HOST=" + ROOT + "/hosts/" + session.host);
  }
  const Outcome outcome = run_program(run);
  return {normalised(with_plain_line_ends(outcome.output)),
          normalised(with_plain_line_ends(outcome.errors)), outcome.status};
}

/// What was said, with the lines that a "..." of the expected text stands for replaced by it.
std::string as_expected(const std::string& said, const std::string& expected) {
  std::string text = said;
  std::size_t at = 0;
  std::istringstream stream(expected);
  for (std::string line; std::getline(stream, line);) {
    if (line != "...") {
      at = std::min(at + line.size() + 1, text.size());
      continue;
    }
    std::string next;
    const auto place = stream.tellg();
    std::getline(stream, next);
    stream.seekg(place);
    const std::size_t end = next.empty() ? text.size() : text.find(next + "\n", at);
    if (end == std::string::npos) return said;
    text.replace(at, end - at, "...\n");
    at += 4;
  }
  return text;
}

class SessionTest : public testing::TestWithParam<Session> {};

TEST_P(SessionTest, SaysWhatItMust) {
  const Session& session = GetParam();
  const Outcome outcome = play(session);
  EXPECT_EQ(as_expected(outcome.errors, session.errors), session.errors);
  EXPECT_EQ(outcome.output, session.output);
  EXPECT_EQ(outcome.status, session.status);
}

std::string case_name(const testing::TestParamInfo<Session>& session) {
  static const std::regex MARK("[^A-Za-z0-9]");
  return std::to_string(session.index) + "_" + std::regex_replace(session.param.name, MARK, "_");
}

INSTANTIATE_TEST_SUITE_P(All, SessionTest, testing::ValuesIn(all_sessions()), case_name);

}  // namespace

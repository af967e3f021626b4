// The README shows what the program says.

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "tests/support/program.h"

namespace {

TEST(Documents, ShowTheProgramAtWork) {
  const std::string readme = read_file(SOURCE_ROOT "/README.md");
  const std::size_t begin = readme.find("```\n$") + 4;
  std::istringstream screen(readme.substr(begin, readme.find("$\n```", begin) - begin));
  std::string typed;
  std::string expected;
  for (std::string line; std::getline(screen, line);) {
    (line[0] == '$' ? typed : expected) += line.substr(line[0] == '$' ? 1 : 0) + "\n";
  }
  const Outcome outcome = run_program({.input = typed + "quit\n"});
  EXPECT_EQ(normalised(outcome.errors), normalised(expected) + "INFO  @ - done.\n");
}

}  // namespace

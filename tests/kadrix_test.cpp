#include "brenlo/src/kadrix.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "tests/support/namespace.h"
#include "tests/support/program.h"

namespace {

const std::string READ_ERROR = "ERROR @ kadrix:# - error reading user input. try again.\n";
const std::string DONE = "INFO  @ - done.\n";

TEST(Prompt, StandsBeforeTheLineIsTyped) {
  EXPECT_EQ(
      run_shell(
          "d=$(mktemp -d); mkfifo $d/typed; exec 3<>$d/typed; env -i timeout 20 \"" KADRIX_PROGRAM
          "\" <$d/typed 2>/dev/null | { head -c 1; echo quit >&3; cat; }; rm -r $d"),
      "$");
}

TEST(Input, LinesOfEveryKindAreAnsweredAndThePromptReturns) {
  const std::string longest(1023, 'x');
  const std::string bad = "ERROR @ kadrix:# - bad command ";
  using Case = std::tuple<std::string, std::string, std::string>;
  for (const auto& [input, output, errors] : {
           Case{"quit", "$", DONE},
           {"quit\r", "$", DONE},
           {"foo\r\nquit\r\n", "$$", bad + "foo\n" + DONE},
           {"fo\ro\nquit\n", "$$", bad + "fo\\ro\n" + DONE},
           {"", "$", READ_ERROR + DONE},
           {longest + "\r\nquit\n", "$$", bad + longest + "\n" + DONE},
           {longest + "x\nquit\n", "$$", READ_ERROR + DONE},
           {"quit " + std::string(100000, 'x') + "\nquit\n", "$$", READ_ERROR + DONE},
           {"quit " + std::string(100000, 'x'), "$", READ_ERROR + DONE},
           {std::string("quit\0\nquit\n", 11), "$$", READ_ERROR + DONE},
           {"\xFF\xFE\x01\nquit\n", "$$", bad + "\xFF\xFE\x01\n" + DONE},
       }) {
    const Outcome outcome = run_program({.input = input});
    EXPECT_EQ(outcome.output, output) << input.substr(0, 80);
    EXPECT_EQ(normalised(outcome.errors), errors) << input.substr(0, 80);
    EXPECT_EQ(outcome.status, 0);
  }
}

}  // namespace

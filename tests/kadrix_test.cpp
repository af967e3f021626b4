#include "brenlo/src/kadrix.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/hosts.h"
#include "tests/support/program.h"

namespace {

const std::string READ_ERROR = "ERROR @ kadrix:# - error reading user input. try again.\n";
const std::string DONE = "INFO  @ - done.\n";

TEST(Input, LinesOfEveryKindAreAnsweredAndThePromptReturns) {
  const std::string longest(1023, 'x');
  const std::string bad = "ERROR @ kadrix:# - bad command ";
  struct Case {
    std::string input;
    std::string output;
    std::string errors;
  };
  for (const auto& [input, output, errors] : {
           Case{"quit", "$", DONE},
           {"quit\r", "$", DONE},
           {"foo\r\nquit\r\n", "$$", bad + "foo\n" + DONE},
           {"fo\ro\nquit\n", "$$", bad + "fo\\ro\n" + DONE},
           {"", "$", READ_ERROR + DONE},
           {"\n", "$$", "ERROR @ kadrix:# - no tokens detected. try again.\n" + READ_ERROR + DONE},
           {longest + "\nquit\n", "$$", bad + longest + "\n" + DONE},
           {longest + "\r\nquit\n", "$$", bad + longest + "\n" + DONE},
           {longest + "x\nquit\n", "$$", READ_ERROR + DONE},
           {"quit " + std::string(100000, 'x') + "\nquit\n", "$$", READ_ERROR + DONE},
           {"quit " + std::string(100000, 'x'), "$", READ_ERROR + DONE},
           {std::string("quit\0\nquit\n", 11), "$$", READ_ERROR + DONE},
           {"\xFF\xFE\x01\nquit\n", "$$", bad + "\xFF\xFE\x01\n" + DONE},
           {"%s%n%d\nquit\n", "$$", bad + "%s%n%d\n" + DONE},
       }) {
    struct Run run;
    run.input = input;
    const Outcome outcome = run_program(run);
    EXPECT_EQ(outcome.output, output) << input.substr(0, 80);
    EXPECT_EQ(normalised(outcome.errors), errors) << input.substr(0, 80);
    EXPECT_EQ(outcome.status, 0);
  }
}

TEST(Stress, RunsThroughConsecutiveAddresses) {
  struct Case {
    const char* start;
    const char* count;
    std::vector<std::string> addresses;
  };
  for (const auto& [start, count, addresses] :
       {Case{"10.1.1.253", "4", {"10.1.1.253", "10.1.1.254", "10.1.2.1", "10.1.2.2"}},
        Case{"10.1.255.254", "3", {"10.1.255.254", "10.2.0.1", "10.2.0.2"}},
        Case{"9.255.255.254", "2", {"9.255.255.254", "10.0.0.1"}}}) {
    const TestHost host(one_adapter(""));
    System system;
    host->keep_diary();
    written_by([&, start = start, count = count] {
      EXPECT_EQ(run_stress(system, "Ethernet", "1", count, start, "255.0.0.0"), 0);
    });
    std::vector<std::string> expected;
    for (const std::string& address : addresses) {
      expected.insert(expected.end(), {"add " + address + "/255.0.0.0 to 2", "sleep 1"});
    }
    for (const std::string& address : addresses) {
      expected.insert(expected.end(), {"delete " + address, "sleep 1"});
    }
    EXPECT_EQ(host->diary(), expected);
  }
}

TEST(Stress, NumbersOfAnySizeGoIntoTheTextsUnchanged) {
  const TestHost host(one_adapter(""));
  System system;
  const std::string written = written_by([&] {
    EXPECT_EQ(run_stress(system, "Ethernet", "1", "1", "-99999999999.300.2147483647.-5", "x"), -1);
  });
  EXPECT_NE(written.find("error adding address -2147483648.300.2147483647.-5,x."),
            std::string::npos)
      << written;
}

}  // namespace

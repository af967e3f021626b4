// The seeds of the fuzzers, and whatever they once found, run with every test run.

#include <gtest/gtest.h>

#include <filesystem>

#include "fuzz/targets.h"
#include "tests/support/program.h"

TEST(FuzzCorpus, HoldsWhatMustHold) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  std::size_t targets = 0;
  for (const auto& folder : std::filesystem::directory_iterator(SOURCE_ROOT "/fuzz/corpus")) {
    const FuzzTarget run = FUZZ_TARGETS.at(folder.path().filename());
    ++targets;
    for (const auto& file : std::filesystem::directory_iterator(folder)) {
      const std::string input = read_file(file.path());
      run(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
    }
  }
  testing::internal::GetCapturedStderr();
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(targets, FUZZ_TARGETS.size());
}

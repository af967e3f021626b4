// The seeds of the fuzzers, and whatever they once found, run with every test run.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "fuzz/targets.h"
#include "tests/support/program.h"

namespace {

struct Target {
  const char* name;
  void (*run)(const std::uint8_t* data, std::size_t size);
};

class FuzzCorpusTest : public testing::TestWithParam<Target> {};

TEST_P(FuzzCorpusTest, HoldsWhatMustHold) {
  const auto& [name, run] = GetParam();
  int inputs = 0;
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  for (const auto& file :
       std::filesystem::directory_iterator(std::string(SOURCE_ROOT) + "/fuzz/corpus/" + name)) {
    const std::string input = read_file(file.path());
    run(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
    ++inputs;
  }
  testing::internal::GetCapturedStderr();
  testing::internal::GetCapturedStdout();
  EXPECT_GT(inputs, 0);
}

INSTANTIATE_TEST_SUITE_P(
    All, FuzzCorpusTest,
    testing::Values(Target{"config", fuzz_config}, Target{"exclusion", fuzz_exclusion},
                    Target{"shortcut", fuzz_shortcut}, Target{"debug_config", fuzz_debug_config},
                    Target{"hex", fuzz_hex}, Target{"ranges", fuzz_ranges},
                    Target{"description", fuzz_description}, Target{"session", fuzz_session}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace

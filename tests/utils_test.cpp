#include "shared/include/utils.h"

#include <gtest/gtest.h>

#include <cstdint>

#include "shared/include/vmk_debug.h"

namespace {

TEST(Utils, ReadsDecimalNumbersWithinThirtyTwoBits) {
  struct Case {
    const char* text;
    std::int32_t value;
  };
  for (const auto& [text, value] : {Case{"", 0},
                                    {"abc", 0},
                                    {" 2", 2},
                                    {"2x", 2},
                                    {"-7", -7},
                                    {"+7", 7},
                                    {"- 7", 0},
                                    {"\t\v\f\r\n1", 1},
                                    {"2147483647", INT32_MAX},
                                    {"2147483648", INT32_MAX},
                                    {"-2147483648", INT32_MIN},
                                    {"-2147483649", INT32_MIN},
                                    {"99999999999999999999999", INT32_MAX}}) {
    EXPECT_EQ(decimal_value(text), value) << text;
  }
}

TEST(Utils, ReadsQuadsAsFarAsTheyGo) {
  struct Case {
    const char* text;
    int count;
    std::int32_t numbers[4];
  };
  for (const Case& it : {Case{"10.1.2.3", 4, {10, 1, 2, 3}},
                         {"10.1.2", 3, {10, 1, 2, 9}},
                         {"10.1.2.", 3, {10, 1, 2, 9}},
                         {"10..2.3", 1, {10, 9, 9, 9}},
                         {"-1.+2.300.4x", 4, {-1, 2, 300, 4}},
                         {"x", 0, {9, 9, 9, 9}},
                         {"1 .2.3.4", 1, {1, 9, 9, 9}}}) {
    std::int32_t numbers[4] = {9, 9, 9, 9};
    EXPECT_EQ(scan_quad(it.text, numbers), it.count) << it.text;
    for (int i = 0; i < 4; ++i) EXPECT_EQ(numbers[i], it.numbers[i]) << it.text;
  }
}

TEST(Utils, ComparesIgnoringTheCaseOfAsciiLettersOnly) {
  EXPECT_TRUE(equals_ignoring_case("QUIT", "quit"));
  EXPECT_FALSE(equals_ignoring_case("quit", "quits"));
  EXPECT_FALSE(equals_ignoring_case("[", "{"));
  EXPECT_FALSE(equals_ignoring_case("\xC4", "\xE4"));
  EXPECT_TRUE(begins_ignoring_case("Fast Ethernet", "fAST"));
  EXPECT_FALSE(begins_ignoring_case("Fast", "Fast Ethernet"));
}

bool only_system_at_935(const char* module, std::int32_t line) {
  return std::string_view(module) == "system.cpp" && line == 935;
}

TEST(DebugModules, AreOffUntilATableAnswersForThem) {
  const DebugModule source(".\\deep\\system.cpp");
  const DebugModule other("system.c");
  EXPECT_FALSE(source.is_enabled(935));
  install_debug_table(only_system_at_935);
  EXPECT_TRUE(source.is_enabled(935));
  EXPECT_FALSE(source.is_enabled(936));
  EXPECT_FALSE(other.is_enabled(935));
  install_debug_table(nullptr);
  EXPECT_STREQ(kadrix_debug.name(), "kadrix");
}

}  // namespace

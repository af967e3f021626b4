#include "shared/include/dynstore.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/support/hosts.h"
#include "tests/support/memory.h"

namespace {

class DynStoreTest : public testing::Test {
 protected:
  DynStoreTest() { memory = {}; }

  int append(std::size_t count) { return store_.append_str(std::string(count, 'x').c_str()); }

  DynStore store_{COUNTED_MEMORY};
};

TEST_F(DynStoreTest, TheInlineAreaIsFreeOfAllocation) {
  EXPECT_EQ(store_.length(), 0);
  EXPECT_EQ(store_.capacity(), 1024);
  append(1023);
  EXPECT_EQ(memory.allocations, 0);
  append(1);
  EXPECT_EQ(memory.allocations, 1);
  EXPECT_EQ(store_.capacity(), 2048);
  EXPECT_EQ(store_.offset(), 0);
  EXPECT_EQ(store_.str(), std::string(1024, 'x'));
  store_.clear();
  EXPECT_EQ(store_.capacity(), 2048);
  EXPECT_STREQ(store_.str(), "");
}

TEST_F(DynStoreTest, GrowsToTheNeedOrByAStep) {
  append(5000);
  EXPECT_EQ(store_.capacity(), 5001);
  append(1);
  EXPECT_EQ(store_.capacity(), 6025);
  memory.allocations = 0;
  DynStore back(COUNTED_MEMORY);
  for (int i = 0; i < 100 * 1024; ++i) EXPECT_EQ(back.append_char('a'), 0);
  EXPECT_EQ(memory.allocations, 100);
  memory.allocations = 0;
  DynStore front(COUNTED_MEMORY);
  for (int i = 0; i < 100 * 1024; ++i) EXPECT_EQ(front.prepend_char('a'), 0);
  EXPECT_EQ(front.length(), 100 * 1024);
  EXPECT_LE(memory.allocations, 100);
}

TEST_F(DynStoreTest, PrependsIntoTheFrontRoomOrMovesTheText) {
  EXPECT_EQ(store_.append_str("0123456789") | store_.prepend_str("abc"), 0);
  EXPECT_STREQ(store_.str(), "abc0123456789");
  EXPECT_EQ(store_.offset(), 0);
  EXPECT_EQ(store_.drop_front(5), 0);
  EXPECT_EQ(store_.offset(), 5);
  EXPECT_EQ(store_.prepend_str("xyz"), 0);
  EXPECT_EQ(store_.offset(), 2);
  EXPECT_STREQ(store_.str(), "xyz23456789");
  // Growth keeps the front room there was.
  EXPECT_EQ(store_.prepend_str(std::string(2000, '-').c_str()), 0);
  EXPECT_EQ(store_.offset(), 2);
  EXPECT_EQ(store_.str(), std::string(2000, '-') + "xyz23456789");
  EXPECT_EQ(memory.last_size, 2012U + 2002U);
}

TEST_F(DynStoreTest, TurnsNumbersIntoText) {
  EXPECT_EQ(store_.append_int(-5) | store_.append_uint(4294967295U) |
                store_.append_int64(INT64_MIN) | store_.append_long(-1) | store_.append_ulong(7),
            0);
  EXPECT_EQ(store_.prepend_int(-6) | store_.prepend_uint(4000000000U) | store_.prepend_long(1) |
                store_.prepend_ulong(2) | store_.prepend_int64(INT64_MAX),
            0);
  EXPECT_STREQ(store_.str(),
               "9223372036854775807214000000000-6-54294967295-9223372036854775808-17");
  EXPECT_EQ(store_.set_format("%s/%d", "a", 5) | store_.append_format("%05d", 42), 0);
  EXPECT_STREQ(store_.str(), "a/500042");
  EXPECT_EQ(store_.set_format("%20000d", 1), 0);
  EXPECT_EQ(store_.length(), 16383);
}

TEST_F(DynStoreTest, RemovesAndRefuses) {
  EXPECT_EQ(store_.append_str("x \tabcdefg\t ") | store_.erase(0, 1), 0);
  EXPECT_EQ(store_.trim_leading_blanks() | store_.trim_trailing_blanks(), 0);
  EXPECT_STREQ(store_.str(), "abcdefg");
  EXPECT_EQ(store_.erase(2, 3), 0);
  EXPECT_STREQ(store_.str(), "abfg");
  for (const int result : {store_.erase(2, 3), store_.erase(-1, 1), store_.erase(1, INT32_MAX),
                           store_.drop_front(5), store_.drop_back(5)}) {
    EXPECT_EQ(result, -1);
  }
  EXPECT_EQ(store_.drop_back(1), 0);
  EXPECT_STREQ(store_.str(), "abf");
  EXPECT_EQ(store_.set_format(" \t ") | store_.trim_trailing_blanks(), 0);
  EXPECT_STREQ(store_.str(), "");
}

TEST_F(DynStoreTest, Dumps) {
  EXPECT_EQ(store_.append("a\0b", 3) | store_.drop_front(1), 0);
  EXPECT_EQ(store_.length(), 2);
  EXPECT_EQ(written_by([this] { store_.dump(); }),
            "  params: offset=1, len=3, alloc=1024\n  str = \"\"\n");
}

TEST_F(DynStoreTest, EndsWithoutMemory) {
  memory.refusals = 1;
  expect_stop([this] { append(1024); },
              "\\.\\\\dynstore:[0-9]+: assertion failed - out of memory\n$");
}

}  // namespace

#include "shared/include/oid.h"

#include <winsock2.h>

#include <gtest/gtest.h>

#include "shared/include/utils.h"
#include "tests/support/hosts.h"

namespace {

Oid parsed(const char* text) {
  Oid oid;
  oid.parse(text);
  return oid;
}

TEST(Oids, AreParsedAsFarAsTheyGo) {
  using Case = std::tuple<const char*, int, const char*, const char*>;
  for (const auto& [text, result, shown, errors] : std::initializer_list<Case>{
           {".1.3.6.1.2.1", 0, "1.3.6.1.2.1", ""},
           {"1.3.", 0, "1.3", ""},
           {"1..3", 0, "1", ""},
           {"1.3.6.1x", 0, "1.3.6.1", ""},
           {"letters", 0, "", ""},
           {"", 0, "", ""},
           {"-1.-.4294967295.999999999999", 0, "4294967295.0.4294967295.4294967295", ""},
           {"7.1234567890123.5", -1, "7", "sub-identifier too large: 123456789012\n"},
           {"-12345678901.-123456789012", -1, "4294967295",
            "sub-identifier too large: -12345678901\n"}}) {
    Oid oid;
    EXPECT_EQ(written_by([&, text = text, result = result] { EXPECT_EQ(oid.parse(text), result); }),
              errors);
    EXPECT_STREQ(oid.to_text(), shown) << text;
    EXPECT_EQ(oid.text_length(), static_cast<int>(std::string(shown).size()));
  }
  EXPECT_EQ(oid_text_is_numeric(".1"), 1);
  EXPECT_EQ(oid_text_is_numeric("..1"), 0);
  EXPECT_EQ(oid_text_is_numeric("x1"), 0);
}

TEST(Oids, AreComparedInLexicographicOrder) {
  using Case = std::tuple<const char*, const char*, int, int, int>;
  for (const auto& [a, b, limit, compared, greater_or_equal] :
       {Case{"1.3.6", "1.3.6.1", 0, -1, 0},
        {"1.3", "1.4", 1, 0, 0},
        {"1.3.6.1", "1.3.6.2", 0, -1, 0},
        {"1.3.6", "1.3.6.1", 3, 0, 0},
        {"1.3", "1.3.6", 3, -1, 0},
        {"4294967295", "1", 0, 1, 1},
        {"", "1", 0, -1, 0},
        {"", "", 0, 0, 1},
        {"2.1.1.1.1.1.1.1.1.1", "3.1.1.1.1.1.1.1.0.0", 0, -1, 0},
        {"1.1.1.1.1.1.1.1.1.2", "1.1.1.1.1.1.1.1.2.1", 0, -1, 0}}) {
    EXPECT_EQ(parsed(a).compare(parsed(b), limit), compared) << a << " " << b;
    EXPECT_EQ(parsed(a).greater_or_equal(parsed(b)), greater_or_equal) << a << " " << b;
    EXPECT_EQ(parsed(a).equals(parsed(b)), std::string(a) == b ? 1 : 0);
  }
}

TEST(Oids, MoveToAnArrayWhenTheyGrow) {
  Oid oid;
  for (std::uint32_t i = 0; i < 32; ++i) oid.append_id(i);
  EXPECT_EQ(oid.capacity(), 32);
  oid.append_oid(oid);
  EXPECT_EQ(oid.capacity(), 64);
  EXPECT_EQ(oid.length(), 64);
  EXPECT_EQ(oid.at(63), 31U);
  EXPECT_EQ(oid.at(64), 0U);
  const std::vector<std::uint32_t> forty(40, 7);
  EXPECT_EQ(Oid(forty.data(), 40).capacity(), 72);
  Oid part = parsed("9.9");
  part.assign_range(parsed("0.1.2.3.4"), 1, 10);
  EXPECT_STREQ(part.to_text(), "1.2.3.4");
  part.assign_range(parsed("0.1.2.3.4"), 0, 3);
  EXPECT_STREQ(part.to_text(), "0.1.2");
  part.assign_range(part, 2, 3);
  EXPECT_STREQ(part.to_text(), "2");
  part = oid;
  EXPECT_EQ(part.equals(oid), 1);
  part.assign_range(oid, -1, 2);
  EXPECT_EQ(part.length(), 0);
  part.assign_range(oid, 3, 1);
  EXPECT_EQ(part.length(), 0);

  const std::vector<std::uint32_t> most(65535, 10);
  Oid full(most.data(), 65535);
  EXPECT_EQ(full.length(), 65535);
  EXPECT_EQ(std::string(full.to_text()).size(), 65535U * 3 - 1);
  expect_stop([&] { full.append_id(1); }, "\\.\\\\oid:[0-9]+: assertion failed - out of memory\n$");
}

TEST(Oids, ConvertToOctetsAndAddresses) {
  Oid octets = parsed("3.65.66.323");
  EXPECT_STREQ(octets.to_octets(), "ABC");
  EXPECT_EQ(octets.text_length(), 3);
  EXPECT_STREQ(Oid().to_octets(), "");
  Oid oid(9U);
  for (const auto& [text, result, shown] : {std::tuple{"192.168.1.300", -1, "9"},
                                            {"10.1", 0, "10.1.0.0"},
                                            {"1.10.0.0.7.9", 0, "10.0.0.7"},
                                            {"..10..2", 0, "10.2.0.0"},
                                            {"x", -1, "10.2.0.0"},
                                            {"1.-1", -1, "10.2.0.0"}}) {
    EXPECT_EQ(ipv4_text_to_oid(text, oid), result) << text;
    EXPECT_STREQ(oid.to_text(), shown) << text;
  }
  std::uint32_t address = 0;
  EXPECT_EQ(ipv4_text_to_address("10.1.2.3", address), 0);
  EXPECT_EQ(address, inet_addr("10.1.2.3"));
  EXPECT_EQ(oid_to_ipv4(parsed("1.256"), address), -1);
  EXPECT_EQ(oid_to_ipv4(parsed("1.2"), address), 0);
  EXPECT_EQ(address, inet_addr("1.2.0.0"));
  EXPECT_EQ(ipv4_to_oid(inet_addr("10.9.8.7"), oid), 0);
  EXPECT_STREQ(oid.to_text(), "10.9.8.7");
}

}  // namespace

#include "shared/include/utils.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <limits>

#include "brenlo/src/static_state.h"
#include "shared/include/shared_state.h"
#include "tests/support/folder.h"
#include "tests/support/hosts.h"
#include "tests/support/program.h"
#include "tests/support/streams.h"

namespace {

using testing::ElementsAre;

TEST(Utils, ReadsDecimalNumbersWithinThirtyTwoBits) {
  for (const char* text : {"", "abc", "- 7"}) EXPECT_EQ(decimal_value(text), 0) << text;
  for (const char* text : {" 2", "+2", "2x", "\t\v\f\r\n2"})
    EXPECT_EQ(decimal_value(text), 2) << text;
  EXPECT_EQ(decimal_value("-7"), -7);
  for (const char* text : {"2147483647", "2147483648", "99999999999999999999999"}) {
    EXPECT_EQ(decimal_value(text), INT32_MAX) << text;
  }
  for (const char* text : {"-2147483648", "-2147483649"}) EXPECT_EQ(decimal_value(text), INT32_MIN);
}

TEST(Utils, ReadsQuadsAsFarAsTheyGo) {
  struct Case {
    const char* text;
    int count;
    std::int32_t numbers[4];
  };
  constexpr Case CASES[] = {{"10.1.2.3", 4, {10, 1, 2, 3}},       {"10.1.2", 3, {10, 1, 2, 9}},
                            {"10.1.2.", 3, {10, 1, 2, 9}},        {"10..2.3", 1, {10, 9, 9, 9}},
                            {"-1.+2.300.4x", 4, {-1, 2, 300, 4}}, {"x", 0, {9, 9, 9, 9}},
                            {"1 .2.3.4", 1, {1, 9, 9, 9}}};
  for (const Case& it : CASES) {
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
}

// ---- Texts -------------------------------------------------------------------------------------

std::vector<std::string> pieces(SplitList& list) {
  std::vector<std::string> texts(list.pieces, list.pieces + list.count);
  EXPECT_EQ(split_release(list), 0);
  return texts;
}

TEST(Texts, AreTrimmedAndUnescaped) {
  char text[] = " \t\v\f\r\n a b \n";
  EXPECT_STREQ(skip_blanks(text), "a b \n");
  EXPECT_EQ(trim(text), 0);
  EXPECT_STREQ(text, "a b");
  char escaped[] = "a\\nb\\tc\\sd\\re\\\\n\\~\\";
  EXPECT_STREQ(unescape(escaped), "a\nb\tc d\re\\\\n\\~\\");
  char zero[] = "a\\0b\\n";
  EXPECT_EQ(std::string(unescape(zero), 4), std::string("a\0b\n", 4));
}

TEST(Texts, AreSplitAtACharacter) {
  using Case = std::tuple<const char*, std::vector<std::string>, std::vector<std::string>>;
  for (const auto& [text, all, full] :
       {Case{"a,,b", {"a", "", "b"}, {"a", "b"}}, Case{"a,b,", {"a", "b"}, {"a", "b"}},
        Case{",a", {"", "a"}, {"a"}}, Case{"", {}, {}}, Case{",,", {"", ""}, {}}}) {
    SplitList list;
    std::string copy = text;
    EXPECT_EQ(split_at_char(copy.data(), ',', false, list), 0);
    EXPECT_EQ(pieces(list), all) << text;
    copy = text;
    split_at_char(copy.data(), ',', true, list);
    EXPECT_EQ(pieces(list), full) << text;
    EXPECT_EQ(list.count, 0);
  }
}

TEST(Texts, AreSplitAtAText) {
  using Case = std::tuple<const char*, const char*, int, std::vector<std::string>>;
  for (const auto& [text, separator, result, expected] :
       {Case{"x::y", "::", 1, {"x", "y"}}, Case{"x::", "::", 0, {"x"}}, Case{"", "::", 1, {""}},
        Case{"::", "::", 0, {""}}, Case{"x:y", "::", 1, {"x:y"}}, Case{"x:", "::", 1, {"x:"}},
        Case{"::x", "::", 1, {"", "x"}}, Case{"aab", "ab", 0, {"a"}},
        Case{"aaab", "aab", 1, {"aaab"}}}) {
    SplitList list;
    std::string copy = text;
    EXPECT_EQ(split_at_text(copy.data(), separator, list), result) << text;
    EXPECT_EQ(pieces(list), expected) << text;
  }
}

TEST(Texts, HaveTheirBlanksNormalised) {
  using Case = std::tuple<const char*, unsigned, const char*, const char*>;
  for (const auto& [text, flags, stops, expected] :
       {Case{"  a   \"x  y\"\t", QUOTE_DOUBLE, nullptr, "a \"x  y\""},
        Case{"a b # c", 0, "#", "a b"}, Case{"a '#  b' # c", QUOTE_SINGLE, "#", "a '#  b'"},
        Case{"{a  {b  }  }  c", BRACKET_CURLY, nullptr, "{a  {b  }  } c"},
        Case{"(a  [b", BRACKET_ROUND | BRACKET_SQUARE, nullptr, "(a  [b"},
        Case{"(a  b)  [c  d]  e", BRACKET_ROUND | BRACKET_SQUARE, nullptr, "(a  b) [c  d] e"},
        Case{"a\\  b\\", ESCAPE_BACKSLASH, nullptr, "a\\  b\\"},
        Case{"\t`a\t\tb`  `", QUOTE_BACK, nullptr, "`a\t\tb` `"}, Case{" \t ", 127, "", ""}}) {
    std::string copy = text;
    EXPECT_EQ(normalize_blanks(copy.data(), flags, stops), 0);
    EXPECT_STREQ(copy.c_str(), expected) << text;
  }
}

TEST(Texts, AreMeasuredAndTurned) {
  EXPECT_EQ(has_unprintable("abc~\n", 4), 0);
  EXPECT_EQ(has_unprintable("abc~\n", 5), 1);
  EXPECT_EQ(has_unprintable("\x80", 1), 1);
  EXPECT_EQ(fits_in("abc", 4), 1);
  EXPECT_EQ(fits_in("", 1), 1);
  EXPECT_EQ(fits_in("abc", 3), 0);
  char path[] = "C:\\Work/X\xC4";
  EXPECT_EQ(normalize_path(path), 0);
  EXPECT_STREQ(path, "c:/work/x\xC4");
  EXPECT_EQ(to_backslashes(path), 0);
  EXPECT_STREQ(path, "c:\\work\\x\xC4");
  EXPECT_EQ(to_slashes(path), 0);
  EXPECT_STREQ(path, "c:/work/x\xC4");
  EXPECT_EQ(normalize_path(nullptr), -1);
  char types[16];
  file_type_list(types, sizeof types);
  EXPECT_STREQ(types, "{*.ztcl {ZARVO ");
}

TEST(HexBytes, AreReadInEveryGrouping) {
  const std::string mac("\x00\x0C\x29\x3E\x5B\x01", 6);
  const auto expect = [](std::string text, const std::string& bytes) {
    std::int32_t length = -1;
    EXPECT_EQ(hex_to_bytes(text.data(), length), 0);
    EXPECT_EQ(std::string(text.c_str(), static_cast<std::size_t>(length) + 1), bytes + '\0');
  };
  for (const char* text :
       {"00-0C-29-3E-5B-01", "00:0c:29:3e:5b:01", "000C293E5B01", "0 c 29 3e 5b 1"}) {
    expect(text, mac);
  }
  expect("A0C", "\xA0\x0C");
  for (const char* text : {"", "--\n:"}) expect(text, "");
  std::string bad = "00.0C";
  std::int32_t length = -1;
  EXPECT_EQ(hex_to_bytes(bad.data(), length), -1);
  EXPECT_EQ(bad[1], '\0');
  EXPECT_EQ(length, -1);
  EXPECT_EQ(held_lines().front(), "ERROR @ utils:# - bad Hex string token .0C");
}

TEST(Ranges, TurnIntoFlagsAndBack) {
  using Case = std::tuple<const char*, const char*, const char*>;
  for (const auto& [ranges, expected, back] :
       {Case{"1-3,5,7-9", "111010111", "1-3,5,7-9"}, Case{"0-3,99", "111000000", "1-3"},
        Case{"-2", "110000000", "1-2"}, Case{"4-,6-", "000101000", "4,6"},
        Case{"5-4", "000000000", ""}, Case{" 6 ,1-2-3,x", "000001000", "6"},
        Case{"1-99999999999", "111111111", "1-9"}, Case{"", "000000000", ""},
        Case{"0,10", "000000000", ""}}) {
    std::uint8_t flags[10] = {};
    EXPECT_EQ(ranges_to_flags(ranges, flags, 9, 2), 0);
    std::string shown;
    for (int i = 1; i <= 9; ++i) shown += flags[i] == 2 ? '1' : '0';
    EXPECT_EQ(shown, expected) << ranges;
    DynStore text;
    EXPECT_EQ(flags_to_ranges(flags, 9, text, 2), 0);
    EXPECT_STREQ(text.str(), back);
    flags_to_ranges(flags, 9, text, 1);
    EXPECT_STREQ(text.str(), "");
  }
}

// ---- Files -------------------------------------------------------------------------------------

TEST(Lines, AreReadWholeAtAnyLength) {
  const std::string line(10000, 'x');
  const std::string full(4095, 'y');
  std::string text = "a\r\n\n" + line + "\n" + full + "\n" + full.substr(1) + "\n";
  text += std::string("b\0c\nlast", 8) + full.substr(4);
  const File stream = stream_of(text);
  char buffer[4096];
  std::vector<std::string> lines;
  for (;;) {
    std::size_t length = 0;
    const FileLine read = read_line(stream.get(), buffer, sizeof buffer, length);
    if (read.text == nullptr) break;
    EXPECT_EQ(length, std::strlen(read.text));
    lines.emplace_back(read.text);
  }
  EXPECT_EQ(lines, (std::vector<std::string>{"a\r", "", line, full, full.substr(1), "b",
                                             "last" + full.substr(4)}));
}

TEST(Lines, AreReadIntoOneByteToo) {
  char text[] = "ab\ncd";
  const File stream = stream_of({text, 5});
  char buffer[1];
  std::size_t length = 0;
  EXPECT_STREQ(read_line(stream.get(), buffer, 1, length).text, "ab");
  EXPECT_STREQ(read_line(stream.get(), buffer, 1, length).text, "cd");
  EXPECT_EQ(read_line(stream.get(), buffer, 1, length).text, nullptr);

  expect_stop([&] { static_cast<void>(read_line(stdin, buffer, 0, length)); },
              "assertion failed - buflen 0 <= 0\n$");
}

TEST(IdenticalFiles, LoseTheFirst) {
  const TestFolder folder;
  using Case = std::tuple<const char*, const char*, bool>;
  for (const auto& [a, b, removed] :
       {Case{"one\ntwo\n", "one\ntwo\n", true}, Case{"one\ntwo\n", "one\ntwa\n", false},
        Case{"one\n", "one\ntwo\n", false}, Case{"", "", true}}) {
    const std::string path_a = folder.write("a", a);
    const std::string path_b = folder.write("b", b);
    EXPECT_EQ(remove_if_identical(path_a.c_str(), path_b.c_str()), 0);
    EXPECT_EQ(std::filesystem::exists(path_a), !removed) << a << b;
    EXPECT_TRUE(std::filesystem::exists(path_b));
  }
  const std::string path = folder.write("a", "");
  const std::string none = folder.path() + "/none";
  const auto expect_failure = [](const std::string& a, const std::string& b) {
    errno = 0;
    EXPECT_EQ(remove_if_identical(a.c_str(), b.c_str()), -1);
    errno = 0;
  };
  expect_failure(path, none);
  EXPECT_THAT(held_lines(), ElementsAre("WARN  @ utils:# - cannot open " + none,
                                        "      @ utils:# - fopen: No such file or directory"));
  expect_failure(path, folder.path());
  EXPECT_TRUE(std::filesystem::exists(path));
  expect_failure("/proc/version", "/proc/version");
  EXPECT_THAT(held_lines(), ElementsAre("WARN  @ utils:# - cannot delete /proc/version",
                                        testing::StartsWith("      @ utils:# - unlink: ")));
  expect_failure(path, "/proc/self/mem");
  EXPECT_THAT(held_lines(), ElementsAre("WARN  @ utils:# - cannot read /proc/self/mem",
                                        "      @ utils:# - fread: Input/output error"));
}

// ---- Time, names, reports ----------------------------------------------------------------------

TEST(Time, IsAddedAndTakenAway) {
  EXPECT_EQ(elapsed_ms({12, 100000}, {10, 900000}), 1200);
  EXPECT_EQ(elapsed_ms({10, 900000}, {12, 100000}), -1200);
  TimeValue time = {1, 600000};
  TimeValue last = {std::numeric_limits<std::int32_t>::max(), 999'999};
  add_ms(last, 1);
  EXPECT_EQ(last.seconds, std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(last.microseconds, 999);
  add_ms(time, 1500);
  EXPECT_EQ(time.seconds, 3);
  EXPECT_EQ(time.microseconds, 100000);
  const TimeValue now = current_time();
  EXPECT_EQ(now.microseconds % 1000, 0);
  // Never behind a time read before.
  const std::int64_t before = std::int64_t{now.seconds} * 1000 + now.microseconds / 1000;
  EXPECT_LE(now_ms() - static_cast<std::uint32_t>(before), 10000U);
}

TEST(Names, AreResolvedAsFarAsAllowed) {
  const TestHost host("os = {user = \"operator\"}");
  char user[9];
  EXPECT_EQ(get_user_name(user, sizeof user), 0);
  EXPECT_STREQ(user, "operator");
  EXPECT_EQ(get_user_name(user, 1), -1);
  EXPECT_STREQ(user, "");
  EXPECT_EQ(get_user_name(user, 8), -1);
  EXPECT_EQ(get_user_name(nullptr, 8), -1);

  std::uint32_t address = 0;
  EXPECT_EQ(resolve_ipv4("10.0.0.1", address), 0);
  EXPECT_EQ(address, inet_addr("10.0.0.1"));
  // Too long to be asked of anybody.
  const std::string name(300, 'n');
  EXPECT_EQ(resolve_ipv4(name.c_str(), address), -1);
  EXPECT_THAT(held_lines(), ElementsAre("ERROR @ utils:# - illegal address or name " + name));
  errmsg_begin();
  EXPECT_FALSE(set_name_lookup(false));
  EXPECT_EQ(resolve_ipv4("localhost", address), -1);
  EXPECT_STREQ(errmsg_compose(), "");
  EXPECT_TRUE(set_name_lookup(true));

  sockaddr_in6 address6 = {};
  EXPECT_EQ(ipv6_supported(), 1);
  EXPECT_EQ(resolve_ipv6("::1", address6), 0);
  EXPECT_EQ(address6.sin6_addr.s6_addr[15], 1);
  errmsg_push("left over");
  EXPECT_EQ(resolve_ipv6("no address", address6), -1);
  EXPECT_THAT(held_lines(), ElementsAre("ERROR @ utils:# - cannot resolve to IPv6 address, or "
                                        "incorrect IPv6 address format"));
}

// What a host offers for IPv6 is asked once in a process: these run in processes of their own.
TEST(NamesDeathTest, OfIpv6NeedAnOsAndAResolver) {
  for (const auto& [description, status, report] :
       {std::tuple{"os = {major = 5, minor = 0}", 1,
                   "^ERROR [^ ]+ utils:[0-9]+ - IPv6 not supported by OS\n$"},
        {"os = {major = 5, minor = 2}", 2, ""},
        {"os = {major = 6, minor = 0}", 2, ""},
        {"os = {major = 6, minor = 1}", 2, ""},
        {"libraries.ws2_32 = [\"getaddrinfo\", \"freeaddrinfo\"]", 2, ""},
        {"libraries = {ws2_32 = false, wship6 = [\"getaddrinfo\", \"freeaddrinfo\"]}", 1,
         "cannot resolve to IPv6"},
        {"[[faults]]\nfunction = \"GetSystemDirectoryA\"\ncode = 5", 1, "cannot resolve to"}}) {
    const auto resolve = [](const std::string& host_text) {
      const TestHost host(host_text);
      sockaddr_in6 address6 = {};
      const int result = resolve_ipv6("::1", address6);
      errmsg_flush();
      std::exit(result + 2);
    };
    EXPECT_EXIT(resolve(description), testing::ExitedWithCode(status), report);
  }
}

TEST(Dumps, LineUpTheirColumns) {
  EXPECT_EQ(written_by([] { hex_dump("0123456789ab\x7F\x80 z~", 17, "p: "); }),
            "INFO  @ - p: 30 31 32 33  34 35 36 37  38 39 61 62   0123456789ab\n"
            "INFO  @ - p: 7F 80 20 7A  7E                         .. z~\n");
  const std::string prefix(300, 'p');
  EXPECT_EQ(written_by([&] { hex_dump("A", 1, prefix.c_str()); }),
            "INFO  @ - " + std::string(203, 'p') + "41 " + std::string(37, ' ') + "A\n");
}

TEST(Reports, OfSeveralLinesKeepTheirOrder) {
  EXPECT_EQ(report_lines(""), 0);
  EXPECT_THAT(held_lines(), ElementsAre("ERROR @ utils:# - "));
  EXPECT_EQ(report_lines("first\nsecond\n\nfourth"), 0);
  EXPECT_THAT(held_lines(), ElementsAre("WARN  @ utils:# - first", "      @ utils:# - second",
                                        "      @ utils:# - ", "      @ utils:# - fourth"));
}

}  // namespace

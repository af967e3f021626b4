#include "shared/include/zarvoparser.h"

#include <cerrno>

#include "brenlo/src/brenlocfg.h"
#include "tests/support/folder.h"
#include "tests/support/hosts.h"
#include "tests/support/program.h"
#include "tests/support/streams.h"

namespace {

using testing::ElementsAre;

int read(ConfigFile& file, std::string_view text) {
  errmsg_push("left over");
  return file.read(stream_of(text).get());
}

TEST(Configuration, ReadsAndWritesTheCanonicalLayout) {
  ConfigFile file;
  ASSERT_EQ(read(file,
                 "# adapters that the tool must leave alone\nversion = 2\n\nexclude = {\n"
                 "    name = Local Area Connection\n    NAME = Wireless Network\n    options = {\n"
                 "        mode=fast\n    }\n    comment = a = b\n}\nexclude = {\n"
                 "    address = 00-0C-29-3E-5B-01\n}\n"),
            0);
  EXPECT_STREQ(file.version(), "2");
  ASSERT_EQ(file.block_count(), 2U);
  EXPECT_STREQ(file.block_name(0), "exclude");
  EXPECT_EQ(file.pair_count(0), 2U);
  EXPECT_STREQ(file.value(0, "Name"), "Local Area Connection\nWireless Network");
  EXPECT_STREQ(file.value(0, "comment"), "a = b");
  EXPECT_EQ(file.value(0, "mode"), nullptr);
  EXPECT_STREQ(file.block(0).child(0).find_value("MODE"), "fast");
  EXPECT_EQ(written(file),
            "version = 2\nexclude = {\n\tname = Local Area Connection\n\tname = Wireless Network\n"
            "\tcomment = a = b\n\toptions = {\n\t\tmode = fast\n\t}\n}\nexclude = {\n"
            "\taddress = 00-0C-29-3E-5B-01\n}\n");
}

TEST(Configuration, LinesMeanWhatTheySay) {
  const std::string longest = "a = {\n\tk = " + std::string(10000, 'x') + "\n}\n";
  for (const auto& [text, expected] : std::initializer_list<std::pair<const char*, const char*>>{
           {"", ""},
           {"# a\n\n  \t\n", ""},
           {"VERSION = 3 \t", "version = 3\n"},
           {"version = {\n", "version = {\n"},
           {"version=\na={\n}", "version = \na = {\n}\n"},
           {"a = {\n} and more\n", "a = {\n}\n"},
           {"a = { }\n}\n", "a = {\n}\n"},
           {"a={\nk=\nk\tt=v\n#c = 1\n}\r\n", "a = {\n\tk = \n\tk\tt = v\n}\n"},
           {"a = {\na = 1\nA = 2\n}", "a = {\n\ta = 1\n\ta = 2\n}\n"},
           {"a = {\na = 1\na =\n}", "a = {\n\ta = 1\n}\n"},
           {"a = {\na =\na =\na = 1\n}", "a = {\n\ta = \n\ta = \n\ta = 1\n}\n"},
           {"a = {\nb = {\n}\nk = 1\n}\na = {\n}", "a = {\n\tk = 1\n\tb = {\n\t}\n}\na = {\n}\n"},
           {longest.c_str(), longest.c_str()},
       }) {
    ConfigFile file;
    EXPECT_EQ(read(file, text), 0) << text;
    EXPECT_EQ(written(file), expected) << text;
  }
}

TEST(Configuration, FaultsNameTheirLine) {
  using Case = std::tuple<const char*, const char*, const char*>;
  for (const auto& [text, report, kept] : std::initializer_list<Case>{
           {"}\n", "line 1 : bad format, expecting xxx = yyy", ""},
           {"v = {\n}\n\n = 1\n", "line 4 : bad format, expecting xxx = yyy", "v = {\n}\n"},
           {"a = {\nb = {\nno equals\n", "line 3 : bad format, expecting xxx = yyy", ""},
           {"two words = {\n", "line 1 : bad format, expecting single token", ""},
           {"a = {\n}\nversion = 1\n", "line 3 : bad format, key-value pair outside of block",
            "a = {\n}\n"},
           {"a = {\n#\n\n", "line 3 : bad format, expecting \"}\" before end of file", ""},
           {"a = { }", "line 1 : bad format, expecting \"}\" before end of file", ""}}) {
    ConfigFile file;
    EXPECT_EQ(read(file, text), -1) << text;
    EXPECT_THAT(held_lines(), ElementsAre("ERROR @ zarvoparser:# - " + std::string(report)));
    EXPECT_EQ(written(file), kept) << text;
  }
}

TEST(Configuration, AFailingStreamEndsTheInput) {
  const TestFolder folder;
  const File stream(std::fopen(folder.path().c_str(), "r"), std::fclose);
  ConfigFile file;
  errmsg_push("left over");
  EXPECT_EQ(file.read(stream.get()), 0);
  errno = 0;
  EXPECT_THAT(held_lines(), ElementsAre("ERROR @ utils:# - cannot read file.",
                                        "      @ utils:# - fgets: Is a directory"));
}

TEST(Configuration, StopsAtAnIndexOutOfRange) {
  ConfigFile file;
  ASSERT_EQ(read(file, "a = {\n}\na = {\n}\n"), 0);
  expect_stop([&] { static_cast<void>(file.block(5)); },
              "\\.\\\\zarvoparser:[0-9]+: assertion failed - out of bounds access. 5>=2\n$");
}

TEST(Configuration, TakesDepthAndBreadth) {
  constexpr int DEPTH = 10000;
  std::string deep;
  for (int i = 0; i < DEPTH; ++i) deep += "a={\n";
  for (int i = 0; i < DEPTH; ++i) deep += "}\n";
  ConfigFile file;
  EXPECT_EQ(read(file, deep), 0);
  std::string broad = "a = {\n";
  for (int i = 0; i < 100000; ++i) broad += "Key" + std::to_string(i) + " = " + "v\n";
  std::string longest = "k = ";
  longest.resize(10'000'000, 'x');
  EXPECT_EQ(read(file, broad + "KEY7 = w\n" + longest + "\n}\n"), 0);
  EXPECT_STREQ(file.value(0, "key7"), "v\nw");
  EXPECT_EQ(file.pair_count(0), 100001U);
  for (int i = 0; i < 100000; i += 9) {
    ASSERT_NE(file.value(0, ("KEY" + std::to_string(i)).c_str()), nullptr) << i;
  }
  EXPECT_EQ(file.block_count(), 1U);
}

// ---- Exclusion files ---------------------------------------------------------------------------

TEST(ExclusionFile, FillsTheList) {
  const TestFolder folder;
  const std::string path = folder.write(
      "exclusion.cfg",
      "exclude = {\n    name = Local Area Connection 3\n}\n"
      "exclude = {\n    address = 00:0C:29\n name = Spare\n}\n"
      "adapters = {\n}\nexclude = {\n    name =\n}\n"
      "exclude = {\naddress =\nNAME = Other\n}\n"
      "Exclude = {\n}\nexclude = {\naddress = 00.0C\n}\n"
      "exclude = {\nname = " +
          std::string(256, 'n') + "\n}\nexclude = {\nname = " + std::string(255, 'n') + "\n}\n");
  ExclusionList list;
  const std::string said = written_by([&] { EXPECT_EQ(list.load(path.c_str()), 0); });
  EXPECT_EQ(said, "ERROR @ brenlocfg:# - unknown block[3] adapters found in " + path +
                      "\nERROR @ brenlocfg:# - empty exclude block[4] found in " + path +
                      "\nERROR @ brenlocfg:# - unknown block[6] Exclude found in " + path +
                      "\nERROR @ utils:# - bad Hex string token .0C\n"
                      "ERROR @ brenlocfg:# - value of exclude block[8] too long in " +
                      path + "\n");
  EXPECT_EQ(list.count(), 4);
  for (const char* name : {"Local Area Connection 3", "Local Area Connection 31",
                           "Local Area Connection", "Other", "nnn"}) {
    EXPECT_EQ(list.excludes_name(name), 1) << name;
  }
  EXPECT_EQ(list.excludes_name("Wireless Network Connection"), 0);
  EXPECT_EQ(list.excludes_name("Spare"), 0);
  const std::uint8_t excluded[6] = {0x00, 0x0C, 0x29, 0x11, 0x22, 0x33};
  const std::uint8_t other[6] = {0x00, 0x50, 0x56, 0x11, 0x22, 0x33};
  EXPECT_EQ(list.excludes_address(excluded), 1);
  EXPECT_EQ(list.excludes_address(other), 0);
  EXPECT_EQ(list.load(path.c_str()), 0);
  EXPECT_EQ(list.count(), 8);
}

TEST(ExclusionFile, IsRefusedWhole) {
  const TestFolder folder;
  ExclusionList list;
  const std::string none = folder.path() + "/none";
  errno = 0;
  EXPECT_EQ(list.load(none.c_str()), -1);
  errno = 0;
  EXPECT_THAT(held_lines(), ElementsAre("WARN  @ brenlocfg:# - cannot open file " + none + ".",
                                        "      @ brenlocfg:# - fopen: No such file or directory"));
  const std::string bad = folder.write("bad", "exclude = {\nname = x\n}\nexclude\n");
  EXPECT_EQ(list.load(bad.c_str()), -1);
  EXPECT_THAT(held_lines(),
              ElementsAre("WARN  @ brenlocfg:# - cannot load data from " + bad + ".",
                          "      @ zarvoparser:# - line 4 : bad format, expecting xxx = yyy"));
  EXPECT_EQ(list.count(), 0);
}

}  // namespace

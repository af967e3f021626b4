#include "shared/include/searchpath.h"

#include <cstdlib>
#include <set>

#include "brenlo/src/static_state.h"
#include "brenlo/src/system.h"
#include "shared/include/utils.h"
#include "shared/include/vmk_debug.h"
#include "shared/include/vmk_debug_config.h"
#include "tests/support/folder.h"
#include "tests/support/hosts.h"
#include "tests/support/program.h"
#include "tests/support/streams.h"

namespace {

using testing::ElementsAre;

/// The environment variables of the search path, unset again with the object.
struct Environment {
  ~Environment() {
    for (const char* name : {"ZARVO_PRIV_DIR", "HOMEDRIVE", "HOMEPATH", "USERNAME", "ZARVO_DIR"}) {
      unsetenv(name);
    }
  }
  static void set(const char* name, const char* value) {
    if (value != nullptr) setenv(name, value, 1);
  }
};

TEST(PrivateDirectory, IsTheFirstThatApplies) {
  using Case =
      std::tuple<const char*, const char*, const char*, const char*, const char*, const char*>;
  for (const auto& [given, priv, drive, home, user, directory] :
       {Case{"D:\\Given", "E:\\x", nullptr, nullptr, nullptr, "d:/given/"},
        Case{nullptr, "D:\\Work\\Zarvo", nullptr, nullptr, nullptr, "d:/work/zarvo/"},
        Case{nullptr, "D:\\Work\\", "C:", "\\", "u", "d:/work/"},
        Case{nullptr, nullptr, "C:", "\\Documents and Settings\\User1", "User1",
             "c://documents and settings/user1/zarvo/"},
        Case{nullptr, nullptr, "C:", "\\", "User1", "c:/user1/zarvo/"},
        Case{nullptr, nullptr, "C:", "/home", "User1", "c:/home/zarvo/"},
        Case{nullptr, nullptr, "C:", "\\Users\\x\\", "x", "c://users/x//zarvo/"},
        Case{nullptr, nullptr, "C:", "\\x", nullptr, "c:/zarvo/"},
        Case{nullptr, nullptr, nullptr, nullptr, nullptr, "c:/zarvo/"}}) {
    const Environment environment;
    Environment::set("ZARVO_PRIV_DIR", priv);
    Environment::set("HOMEDRIVE", drive);
    Environment::set("HOMEPATH", home);
    Environment::set("USERNAME", user);
    EXPECT_STREQ(SearchPath(given).private_directory(), directory);
  }
}

std::string little_endian(std::uint32_t number) {
  std::string bytes;
  for (int i = 0; i < 4; ++i) bytes += static_cast<char>(number >> 8 * i);
  return bytes;
}

/// A shortcut file to a target, with an ID list.
std::string shortcut(const std::string& target, std::uint32_t flags = 3) {
  std::string link = little_endian(0x4C) +
                     std::string("\x01\x14\x02\0\0\0\0\0\xC0\0\0\0\0\0\0\x46", 16) +
                     little_endian(flags);
  link.resize(76);
  link += "\x05\x01" + std::string(261, 'l');
  link += little_endian(0) + little_endian(0x1C) + std::string(0x14, '\0');
  link += little_endian(0x110) + std::string(0x10C, 'v');
  return link + target + '\0';
}

std::string found_by(const SearchPath& search, const char* name, SearchMode mode = SEARCH_PRIVATE) {
  char path[PATH_BUFFER_SIZE];
  const char* found = search.resolve(name, path, mode);
  return found != nullptr ? found : "none";
}

TEST(Resolution, FollowsFilesLinksAndShortcuts) {
  const TestFolder folder;
  const SearchPath search(folder.path().c_str());
  EXPECT_STREQ(search_path_user(), "operator");
  const auto find = [&](const char* name) {
    errmsg_push("left over");
    return found_by(search, name);
  };
  const std::string target = folder.write("elsewhere/target.cfg", "x");
  const std::string here = folder.write("config/here.cfg", "x");
  EXPECT_EQ(find("config/here.cfg"), here);
  EXPECT_EQ(find("config"), folder.path() + "/config");
  static_cast<void>(folder.write("config/link.cfg.lnk", shortcut("C:" + target)));
  EXPECT_EQ(find("config/link.cfg"), target);
  static_cast<void>(folder.write("config/Shortcut to debug.cfg.lnk", shortcut(target)));
  EXPECT_EQ(find("config/debug.cfg"), target);
  const std::string broken = folder.write("broken.lnk", shortcut(folder.path() + "/none"));
  EXPECT_EQ(written_by([&] { EXPECT_EQ(find("broken"), broken); }), "");
  EXPECT_EQ(find("none"), "none");
  EXPECT_THAT(held_lines(), ElementsAre("ERROR @ searchpath:# - none not in search path"));
  const std::string slashes(PATH_BUFFER_SIZE - 1 - folder.path().size() - sizeof "/f", '/');
  static_cast<void>(folder.write("ff", ""));
  EXPECT_EQ(find((slashes + "ff").c_str()), folder.path() + "/" + slashes + "ff");
  EXPECT_EQ(find((slashes + "ff and more").c_str()), "none");
  EXPECT_EQ(find(std::string(5000, 'n').c_str()), "none");
}

TEST(Resolution, TellsEachStepWhenDebugged) {
  const TestFolder folder;
  const SearchPath search(folder.path().c_str());
  const std::string target = folder.write("target", "x");
  static_cast<void>(folder.write("Shortcut to it.lnk", shortcut(target)));
  install_debug_table(
      [](const char* module, std::int32_t) { return std::string_view(module) == "searchpath"; });
  const std::string said = written_by([&] { found_by(search, "it"); });
  install_debug_table(nullptr);
  const std::string looking = "    looking in " + folder.path() + "/";
  const std::string resolving = "    resolving filename pos.";
  const std::string pass = "THIS IS WHAT WE ARE LOOKING FOR in pass# ";
  std::string expected;
  for (const std::string& line :
       {std::string("searching for it"), looking, std::string("    not found."),
        pass + "1 =>it.lnk ", resolving + "1", looking, std::string("    not found."),
        pass + "2 =>Shortcut to it.lnk ", resolving + "1", resolving + "2", resolving + "3",
        "    resolved filename is " + target, looking, std::string("    found.")}) {
    expected += "DEBUG @ searchpath:# - " + line + "\n";
  }
  EXPECT_EQ(said, expected);
}

TEST(Resolution, ChecksEveryOffsetOfAShortcut) {
  const TestFolder folder;
  const SearchPath search(folder.path().c_str());
  const std::string target = folder.write("target", "x");
  const std::string whole = shortcut(target);
  const auto follows = [&](const std::string& link) {
    static_cast<void>(folder.write("wanted.lnk", link));
    return found_by(search, "wanted") == target;
  };
  EXPECT_TRUE(follows(whole));
  EXPECT_TRUE(follows(shortcut(target, 2).erase(76, 263))) << "no ID list";
  EXPECT_TRUE(follows(std::string(whole).append(std::size_t{9} << 20, '\0')));
  EXPECT_FALSE(follows(std::string(whole).append(std::size_t{16} << 20, '\0'))) << "far too long";
  {
    const TestHost host("[[faults]]\nfunction = \"GetLongPathNameA\"\ncode = 8");
    EXPECT_EQ(written_by([&] { EXPECT_FALSE(follows(whole)); }),
              "ERROR @ searchpath:# - out of memory\n");
  }
  {
    const TestHost old_host("libraries.kernel32 = false");
    EXPECT_TRUE(follows(whole)) << "the path itself, where long forms are not told apart";
    const std::string broken = folder.write("broken.lnk", shortcut(folder.path() + "/none"));
    EXPECT_EQ(found_by(search, "broken"), broken);
    EXPECT_FALSE(follows(shortcut(std::string(260, '/') + target)));
  }
  for (std::size_t size = 0; size < whole.size(); ++size)
    EXPECT_FALSE(follows(whole.substr(0, size)));
  const auto with = [&](std::size_t at, const std::string& bytes) {
    std::string link = whole;
    return link.replace(at, bytes.size(), bytes);
  };
  constexpr std::size_t INFORMATION = 76 + 263;
  for (const std::string& link :
       {with(0, "M"), with(19, "\x47"), with(20, little_endian(1)), with(76, "\xFF\xFF"),
        with(INFORMATION + 4, little_endian(0xFFFFFFFC)),
        with(INFORMATION + 4, little_endian(0x7FFFFFFF)),
        with(INFORMATION + 0x1C, little_endian(0xFFFFFFFF)), shortcut(""),
        shortcut(std::string(300, '/'))}) {
    EXPECT_FALSE(follows(link));
  }
}

TEST(Resolution, SearchesTheDirectoriesOfItsMode) {
  const TestFolder folder;
  const TestHost host("");
  const Environment environment;
  static_cast<void>(folder.write("private/both", ""));
  static_cast<void>(folder.write("product/both", ""));
  static_cast<void>(folder.write("parent/both", ""));
  static_cast<void>(folder.write("parent/far", ""));
  static_cast<void>(folder.write("parent/bin/x", ""));
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(folder.path() + "/parent/bin");
  const SearchPath search((folder.path() + "/private").c_str());
  const auto find = [&](const char* name, SearchMode mode) { return found_by(search, name, mode); };
  EXPECT_EQ(find("both", SEARCH_PRODUCT), "../both");
  Environment::set("ZARVO_DIR", (folder.path() + "\\Product").c_str());
  EXPECT_EQ(dll_init_searchpath(), 0);
  EXPECT_EQ(find("both", SEARCH_ALL), folder.path() + "/private/both");
  EXPECT_EQ(find("both", SEARCH_PRODUCT), folder.path() + "/product/both");
  EXPECT_EQ(find("far", SEARCH_ALL), folder.path() + "/parent/bin/../far");
  EXPECT_EQ(find("far", SEARCH_PRIVATE), "none");
  Environment::set("ZARVO_DIR", "");
  EXPECT_EQ(dll_init_searchpath(), 0);
  EXPECT_EQ(find("x", SEARCH_PRODUCT), "./x");
  {
    const TestHost lost("[[faults]]\nfunction = \"GetCurrentDirectoryA\"\ncode = 3");
    EXPECT_EQ(dll_init_searchpath(), 0);
    EXPECT_EQ(find("far", SEARCH_ALL), "../far") << "of no installation";
  }
  std::filesystem::current_path(before);
  unsetenv("ZARVO_DIR");
  EXPECT_EQ(dll_init_searchpath(), 0);
}

TEST(Listing, GivesEveryEntry) {
  const TestFolder folder;
  const SearchPath search(folder.path().c_str());
  static_cast<void>(folder.write("list/a", ""));
  static_cast<void>(folder.write("list/b", ""));
  static_cast<void>(folder.write("file", ""));
  ListingBuffer buffer;
  auto listing = search.open_listing("list", SEARCH_PRIVATE, buffer);
  ASSERT_NE(listing, nullptr);
  std::set<std::string> names = {buffer.entry};
  while (next_listing_entry(*listing, buffer) == 0) {
    EXPECT_EQ(buffer.directory, folder.path() + "/list");
    names.insert(buffer.entry);
    buffer = {};
  }
  EXPECT_STREQ(buffer.entry, "");
  EXPECT_THAT(names, ElementsAre(".", "..", "a", "b"));
  EXPECT_EQ(close_listing(listing), 0);
  EXPECT_EQ(listing, nullptr);
  buffer = {"left", "over"};
  EXPECT_EQ(search.open_listing("none", SEARCH_PRIVATE, buffer), nullptr);
  EXPECT_EQ(std::string(buffer.directory) + buffer.entry, "");
  EXPECT_EQ(held_lines().front(), "ERROR @ searchpath:# - none not in search path");
  EXPECT_EQ(search.open_listing("file", SEARCH_PRIVATE, buffer), nullptr);
  EXPECT_EQ(held_lines().front(),
            "ERROR @ searchpath:# - error finding files in " + folder.path() + "/file");
}

// ---- Debug configuration -----------------------------------------------------------------------

TEST(DebugConfiguration, SwitchesModulesAndLines) {
  using Case = std::tuple<std::string, int, const char*, const char*>;
  RuntimeDebugTable table;
  for (const auto& [text, result, dump, report] :
       {Case{"system 935\nsystem\n", 0, "DEBUG Debugging\n module system:935 -1 \n", nullptr},
        Case{"#c\n\tsystem\t12 more\nadapter -5", 0,
             "DEBUG Debugging\n module system:12 \n module adapter:-5 \n", nullptr},
        Case{"a\nb 2\n \t\nc\n", -1, "DEBUG Debugging\n module a:-1 \n module b:2 \n",
             "ERROR @ vmk_debug:# - error at line 3"},
        Case{"#\n\n", -1, "", "ERROR @ vmk_debug:# - error at line 2"}, Case{"", 0, "", nullptr}}) {
    const TestFolder folder;
    errmsg_push("left over");
    EXPECT_EQ(table.load(stream_of(text).get()), result);
    EXPECT_EQ(written_by([&] { table.dump(); }), dump) << text;
    if (report != nullptr) {
      EXPECT_THAT(held_lines(), ElementsAre(report));
    }
    EXPECT_TRUE(table.is_valid());
  }
  std::string longer = "system " + std::string(1100, ' ') + "7\nutils 12";
  table.load(stream_of(longer).get());
  EXPECT_TRUE(table.is_enabled("system", 5));
  EXPECT_TRUE(table.is_enabled("7", 5));
  EXPECT_TRUE(table.is_enabled("utils", 12));
  EXPECT_FALSE(table.is_enabled("utils", 5));
  EXPECT_FALSE(table.is_enabled("System", 5));
}

// Whoever calls before the program's static state stands gets nothing done.
struct EarlyCalls {
  int result = dll_init_debug() + dll_init_searchpath();
};
[[gnu::init_priority(101)]] const EarlyCalls early_calls;

TEST(DebugConfiguration, IsInstalledFromTheSearchPath) {
  EXPECT_EQ(early_calls.result, 0);
  const TestFolder folder;
  const Environment environment;
  Environment::set("ZARVO_DIR", folder.path().c_str());
  EXPECT_EQ(dll_init_searchpath(), 0);
  const auto init_with = [&](const char* configuration) {
    static_cast<void>(folder.write("config/debug.cfg", configuration));
    return written_by([] { EXPECT_EQ(dll_init_debug(), 0); });
  };
  errmsg_push("left over");
  EXPECT_EQ(dll_init_debug(), 0);
  EXPECT_THAT(held_lines(),
              ElementsAre("ERROR @ searchpath:# - config/debug.cfg not in search path"));
  EXPECT_FALSE(system_debug.is_enabled(1));
  EXPECT_EQ(init_with("system\nsearchpath 1\n"), "");
  EXPECT_FALSE(adapter_debug.is_enabled(1));
  {
    const TestHost host(one_adapter("10.0.0.1/8"));
    char address[200];
    EXPECT_EQ(written_by([&] { EXPECT_EQ(get_host_address_from_bindings(address), 0); }),
              "DEBUG @ system:# - adapter = \"E100B1\"\n");
  }
  const std::string error =
      "ERROR @ vmk_debug:# - error loading runtime debugging, continuing...\n"
      "      @ vmk_debug:# - error at line 2\n";
  EXPECT_EQ(init_with("searchpath\n\n"), error);
  EXPECT_EQ(init_with("searchpath\n\n"),
            "DEBUG @ searchpath:# - searching for config/debug.cfg\n"
            "DEBUG @ searchpath:# -     looking in c:/zarvo/\n"
            "DEBUG @ searchpath:# -     not found.\n"
            "DEBUG @ searchpath:# -     looking in " +
                folder.path() +
                "/\n"
                "DEBUG @ searchpath:# -     found.\n" +
                error);
  std::filesystem::remove(folder.path() + "/config/debug.cfg");
  std::filesystem::create_directory(folder.path() + "/config/debug.cfg");
  install_debug_table(nullptr);
  EXPECT_EQ(written_by([] { EXPECT_EQ(dll_init_debug(), 0); }),
            "fopen failed: Permission denied\n"
            "ERROR @ vmk_debug:# - debugging disabled, continuing...\n");
  install_debug_table(nullptr);
  unsetenv("ZARVO_DIR");
  EXPECT_EQ(dll_init_searchpath(), 0);
}

}  // namespace

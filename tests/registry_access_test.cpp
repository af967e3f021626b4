#include "brenlo/src/utils.h"

#include <windows.h>

#include <cstring>

#include "tests/support/hosts.h"

namespace {

using testing::ElementsAre;

constexpr char VALUES[] = R"([registry."Software\\Key"]
list = ["10.0.0.1", "10.0.0.2"]
text = "ten bytes"
number = 7
)";

/// Expects a read to give a text, or to leave the buffer alone and report.
void expect_read(const char* buffer, int result, const char* text, const char* report) {
  EXPECT_EQ(result, report == nullptr ? 0 : -1);
  EXPECT_STREQ(buffer, report == nullptr ? text : "untouched");
  if (report != nullptr) {
    EXPECT_THAT(held_lines(), ElementsAre(report));
  }
}

TEST(RegistryAccess, ReadsWholeValuesWithinTheCapacity) {
  const TestHost host(VALUES);
  using Case = std::tuple<const char*, const char*, std::int32_t, const char*>;
  for (const auto& [key, value, capacity, report] :
       {Case{"SOFTWARE\\key", "TEXT", 10, nullptr},
        {"Software\\Key", "text", 9,
         "ERROR @ utils:# - Insufficient buffer for <Software\\Key\\text>"},
        {"Software\\Key", "none", 0, "ERROR @ utils:# - Cannot read <Software\\Key\\none>"},
        {"Software\\Kex", "text", 9, "ERROR @ utils:# - Cannot open key <Software\\Kex>"},
        {"Software", "text", 9, "ERROR @ utils:# - Cannot read <Software\\text>"}}) {
    char buffer[16] = "untouched";
    std::int32_t size = capacity;
    expect_read(buffer, read_registry_value(key, value, buffer, &size), "ten bytes", report);
    EXPECT_EQ(size, capacity);
  }
  std::int32_t size = 0;
  EXPECT_EQ(read_registry_value("Software\\Key", "list", nullptr, &size), 0);
  EXPECT_EQ(size, 19);
  std::uint32_t list_size = 0;
  EXPECT_EQ(read_first_multi_sz("Software\\Key", "list", nullptr, &list_size), 0);
  EXPECT_EQ(list_size, 19U);
}

TEST(RegistryAccess, ReadsTheFirstStringOfAList) {
  const TestHost host(VALUES);
  using Case = std::tuple<const char*, std::uint32_t, const char*>;
  for (const auto& [value, capacity, report] :
       {Case{"list", 9, nullptr},
        {"list", 8, "ERROR @ utils:# - Insufficient buffer for <Software\\Key\\list>"},
        {"text", 99, "ERROR @ utils:# - <Software\\Key\\text> is not a REG_MULTI_SZ key"},
        {"number", 99, "ERROR @ utils:# - <Software\\Key\\number> is not a REG_MULTI_SZ key"},
        {"none", 99, "ERROR @ utils:# - <Software\\Key\\none> is not a REG_MULTI_SZ key"}}) {
    char buffer[100] = "untouched";
    std::uint32_t size = capacity;
    const int result = read_first_multi_sz("Software\\Key", value, buffer, &size);
    expect_read(buffer, result, "10.0.0.1", report);
  }
}

TEST(RegistryAccess, WritesListsAndCreatesTheirKey) {
  const TestHost host(VALUES);
  EXPECT_EQ(write_multi_sz_value("Software\\New\\Deep", "list", "a\0b\0", 5), 0);
  const RegistryValue expected = {REG_MULTI_SZ, std::string("a\0b\0\0", 5)};
  const RegistryValue* written = nullptr;
  ASSERT_EQ(host->find_value("software\\new\\deep", "LIST", written), NO_ERROR);
  EXPECT_EQ(*written, expected);
}

TEST(RegistryAccess, EachFailingCallHasItsWords) {
  for (const auto& [fault, report] :
       {std::pair{"function = \"RegCreateKeyExA\"", "ERROR @ utils:# - Cannot create key <A>"},
        {"function = \"RegOpenKeyExA\"", "ERROR @ utils:# - Cannot open key <A>"},
        {"function = \"RegSetValueExA\"", "ERROR @ utils:# - Cannot set <A\\v>"}}) {
    const TestHost host(std::string("[[faults]]\ncode = 5\n") + fault);
    EXPECT_EQ(write_multi_sz_value("A", "v", "", 1), -1);
    EXPECT_THAT(held_lines(), ElementsAre(report));
  }
  const TestHost host(std::string(VALUES) +
                      "[[faults]]\ncode = 5\nfunction = \"RegQueryValueExA\"\nskip = 1");
  char buffer[32];
  std::int32_t size = sizeof buffer;
  EXPECT_EQ(read_registry_value("Software\\Key", "text", buffer, &size), -1);
  EXPECT_THAT(held_lines(), ElementsAre("ERROR @ utils:# - Cannot read <Software\\Key\\text>"));
}

}  // namespace

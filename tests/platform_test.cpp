#include <winsock2.h>

#include <windows.h>

#include <iphlpapi.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <vector>

#include "platform/hosts/host_description.h"
#include "shared/include/guarded_call.h"
#include "tests/support/hosts.h"

namespace {

using testing::ElementsAre;

TEST(Descriptions, AreRefusedWithLineAndReason) {
  const std::string adapter = "[[adapters]]\nname = \"A\"\nindex = 1\n";
  for (const auto& [text, what] : std::initializer_list<std::pair<const char*, const char*>>{
           {"os = 5", "d:1: 'os' must be a table"},
           {"os = {major = -1}", "d:1: 'major' must be from 0 to 4294967295"},
           {"os = {user = 5}", "d:1: 'user' must be a string"},
           {"\ntime = {sleep = 1}", "d:2: 'sleep' must be true or false"},
           {"libraries = {wininet = true}", "d:1: unknown key 'wininet'"},
           {"libraries = {dhcpcsvc = 1}",
            "d:1: 'dhcpcsvc' must be true, false or an array of functions"},
           {"libraries = {dhcpcsvc = [\"Sleep\"]}", "d:1: unknown function 'Sleep'"},
           {"adapters = {}", "d:1: 'adapters' must be an array of tables"},
           {"[[adapters]]\nindex = 1", "d:1: the adapter has no 'name'"},
           {"[[adapters]]\nname = \"A\"", "d:1: the adapter has no 'index'"},
           {"[[adapters]]\nname = \"A\"\nindex = 1\n[[adapters]]\nname = \"a\"\nindex = 2",
            "d:5: 'a' is the name of another adapter too"},
           {"faults = [{code = 1}]", "d:1: the fault has no 'function'"},
           {"faults = [{function = \"Sleep\"}]", "d:1: the fault has no 'code'"},
           {"registry = {Key = 5}", "d:1: a registry key must be a table of values"},
           {"registry = {Key = {v = true}}",
            "d:1: a registry value is a string, an array of strings, an integer or false"},
       }) {
    try {
      static_cast<void>(parse_description(text, "d"));
      ADD_FAILURE() << text;
    } catch (const DescriptionError& error) {
      EXPECT_STREQ(error.what(), what);
    }
  }
  for (const char* line :
       {"addresses = [\"10.0.0.1\"]", "addresses = [\"10.0.0.1/255.0.0.0\", \"10.0.0.1/0.0.0.0\"]",
        "addresses = [\"010.0.0.1/255.0.0.0\"]", "hardware_address = \"00-0\"",
        "hardware_address = \"00-0G\"", "hardware_address = \"00-01-\"", "blank_slots = 10011",
        "hardware_address = \"00-01-02-03-04-05-06-07-08\"", "gateways = [\"\"]"}) {
    EXPECT_THROW(static_cast<void>(parse_description(adapter + line, "d")), DescriptionError)
        << line;
  }
}

TEST(Descriptions, TheDefaultIsEmbedded) {
  EXPECT_EQ(default_description().adapters.back().connection, "Wireless Network Connection");
}

TEST(SimulatedHost, RefusesWhatThePlatformRefuses) {
  const TestHost host(one_adapter("\"10.0.0.1/255.0.0.0\""));
  const auto add = [](const char* address, DWORD mask, DWORD index) {
    ULONG context = 0;
    ULONG instance = 0;
    return AddIPAddress(inet_addr(address), mask, index, &context, &instance);
  };
  expect_refusals(add, 2, "10.0.0.1");
  EXPECT_EQ(add("10.0.0.2", 0xFFFFFFFF, 2), 0U);
}

TEST(SimulatedHost, GivesFreshContexts) {
  const TestHost host(one_adapter(""));
  ULONG first = 0;
  ULONG second = 0;
  ULONG instance = 0;
  const DWORD address = inet_addr("10.0.0.2");
  EXPECT_EQ(AddIPAddress(address, 0xFF, 2, &first, &instance), 0U);
  EXPECT_EQ(DeleteIPAddress(first), 0U);
  EXPECT_EQ(DeleteIPAddress(first), 1168U);
  EXPECT_EQ(AddIPAddress(address, 0xFF, 2, &second, &instance), 0U);
  EXPECT_NE(first, second);
}

TEST(SimulatedHost, TheServiceKeepsListsAndTableInStep) {
  const TestHost host(one_adapter("\"10.0.0.1/255.0.0.0\"", 1));
  const auto change = [&](const char* adapter, DWORD slot, const char* address) {
    return host->change_listed_address(adapter, slot, inet_addr(address), 0xFF);
  };
  const auto table = [&] {
    std::span<const HostAddress> addresses;
    EXPECT_EQ(host->read_addresses(Reading::FRESH, addresses), 0U);
    std::vector<std::string> texts;
    for (const HostAddress& address : addresses) texts.emplace_back(address.address_text);
    return texts;
  };
  EXPECT_EQ(change("none", 0, "10.0.0.2"), 2U);
  EXPECT_EQ(change("E100B1", 2, "10.0.0.2"), 87U);
  EXPECT_EQ(change("E100B1", 1, "10.0.0.2"), 0U);
  EXPECT_THAT(table(), ElementsAre("10.0.0.1", "10.0.0.2"));
  EXPECT_EQ(change("E100B1", 0, "10.0.0.3"), 0U);
  EXPECT_EQ(change("E100B1", 1, "0.0.0.0"), 0U);
  EXPECT_THAT(table(), ElementsAre("10.0.0.3"));
}

TEST(SimulatedHost, FaultsCountEveryCall) {
  const TestHost host(R"([[faults]]
function = "GetIfTable"
code = 5
times = 2
[[faults]]
function = "GetIfTable"
code = 6
skip = 1
times = 2
)");
  std::vector<DWORD> codes;
  for (int i = 0; i < 4; ++i) {
    ULONG size = 0;
    codes.push_back(GetIfTable(nullptr, &size, TRUE));
  }
  EXPECT_THAT(codes, ElementsAre(5U, 5U, 6U, 122U));
}

TEST(Registry, AnswersAsThePlatformDoes) {
  const TestHost host("[registry.\"Software\\\\Key\"]\nnumber = 7\nempty = []\n");
  HKEY software = nullptr;
  HKEY key = nullptr;
  EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "Soft", 0, KEY_READ, &software), 2);
  ASSERT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE", 0, KEY_READ, &software), 0);
  ASSERT_EQ(RegOpenKeyExA(software, "key", 0, KEY_QUERY_VALUE, &key), 0);
  DWORD type = 0;
  BYTE bytes[8] = {};
  DWORD size = 1;
  EXPECT_EQ(RegQueryValueExA(key, "number", nullptr, &type, bytes, &size), 234);
  EXPECT_EQ(RegQueryValueExA(key, "NUMBER", nullptr, &type, bytes, &size), 0);
  EXPECT_THAT(std::vector<DWORD>({type, size, bytes[0]}), ElementsAre(4U, 4U, 7U));
  EXPECT_EQ(RegQueryValueExA(key, "empty", nullptr, &type, nullptr, &size), 0);
  EXPECT_THAT(std::vector<DWORD>({type, size}), ElementsAre(7U, 1U));
  EXPECT_EQ(RegSetValueExA(key, "number", 0, REG_SZ, nullptr, 0), 5);
  RegCloseKey(key);
  RegCloseKey(software);
}

TEST(Platform, LeavesErrnoAlone) {
  const TestHost host("");
  errno = 99;
  char text[64];
  MEMORYSTATUS memory;
  GlobalMemoryStatus(&memory);
  EXPECT_GT(memory.dwAvailPhys, 0U);
  EXPECT_EQ(LoadLibraryA("none"), nullptr);
  EXPECT_EQ(GetLastError(), 126U);
  const HMODULE library = LoadLibraryA("IPHLPAPI.DLL");
  ASSERT_NE(library, nullptr);
  EXPECT_EQ(GetProcAddress(library, "Sleep"), nullptr);
  EXPECT_EQ(GetLastError(), 127U);
  EXPECT_EQ(FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, 5, 0, text, sizeof text, nullptr),
            19U);
  EXPECT_STREQ(text, "Access is denied.\r\n");
  EXPECT_EQ(FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, 5, 0, text, 19, nullptr), 0U);
  EXPECT_EQ(errno, 99);
  errno = 0;
}

TEST(GuardedCall, SurvivesAFaultAgainAndAgain) {
  int runs = 0;
  for (int i = 0; i < 3; ++i) {
    EXPECT_FALSE(guarded_call(
        [](void* count) {
          ++*static_cast<int*>(count);
          raise(SIGSEGV);
        },
        &runs));
    EXPECT_TRUE(guarded_call([](void* count) { ++*static_cast<int*>(count); }, &runs));
  }
  EXPECT_EQ(runs, 6);
}

}  // namespace

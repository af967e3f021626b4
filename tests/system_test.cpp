#include "brenlo/src/system.h"

#include "brenlo/src/brenlocfg.h"
#include "brenlo/src/kadrix.h"
#include "shared/include/vmk_debug.h"
#include "tests/support/hosts.h"

namespace {

using testing::ElementsAre;

std::string adapters(const std::vector<const char*>& descriptions) {
  std::string text;
  int index = 2;
  for (const char* description : descriptions) {
    const std::string number = std::to_string(index++);
    text += "[[adapters]]\nname = \"E" + number + "\"\ndescription = \"" + description +
            "\"\nindex = " + number + "\naddresses = [\"10.0." + number + ".1/255.255.0.0\"]\n";
  }
  return text;
}

std::unique_ptr<ExclusionEntry> excluded(ExclusionKind kind, const std::string& value) {
  auto entry = std::make_unique<ExclusionEntry>();
  entry->kind = kind;
  entry->length = static_cast<std::int32_t>(value.size());
  value.copy(entry->value, sizeof entry->value - 1);
  return entry;
}

TEST(FindAdapter, ByPrefixThenBySuffix) {
  using Case = std::tuple<std::vector<const char*>, const char*, const char*>;
  for (const auto& [table, name, found] :
       {Case{{"Fast Ethernet Adapter", "Wireless Adapter"}, "fast", "Fast Ethernet Adapter-2"},
        {{"Fast Ethernet Adapter", "Wireless Adapter"}, "Wireless Adapter-9", "Wireless Adapter-3"},
        {{"Fast Ethernet Adapter"}, "Fast Ethernet Adapter-2-X", "Fast Ethernet Adapter-2"},
        {{"Fast Ethernet Adapter", "Fast Ethernet Adapter"}, "Fast Ethernet Adapter-9", nullptr},
        {{"Fast Ethernet Adapter", "Fast Ethernet Adapter"}, "Fast", "Fast Ethernet Adapter-2"},
        {{"Fast Ethernet Adapter"}, "-2", nullptr},
        {{"Fast Ethernet Adapter"}, "none", nullptr},
        {{"Fast Ethernet Adapter"}, "", "Fast Ethernet Adapter-2"}}) {
    const TestHost host(adapters(table));
    const System system;
    const Adapter* adapter = system.find_adapter(name, true);
    EXPECT_STREQ(adapter != nullptr ? adapter->description() : nullptr, found) << name;
  }
}

TEST(FindAdapter, WithoutANameTakesTheFirstActiveOrTheFirst) {
  const TestHost host(
      "registry.'SYSTEM\\CurrentControlSet\\Services\\Tcpip\\Parameters\\Interfaces\\E2'.IPAddress "
      "= "
      "['10.9.9.9']\n" +
      adapters({"A", "B"}));
  System system;
  EXPECT_EQ(system.find_adapter(nullptr, true), nullptr);
  EXPECT_EQ(system.add_address(nullptr, "10.0.0.9", "255.0.0.0"), -1);
  EXPECT_EQ(system.delete_address(nullptr, "10.0.2.1"), -1);
  EXPECT_THAT(held_lines(), ElementsAre("ERROR @ system:# - Cannot find <first active> adapter."));
  EXPECT_EQ(system.add_ipv6_address(nullptr, "::1"), -1);
  EXPECT_STREQ(system.find_adapter(nullptr, false)->description(), "A-2");
  EXPECT_EQ(system.find_first_active_adapter(), 1);
  EXPECT_STREQ(system.find_adapter(nullptr, true)->description(), "B-3");
  EXPECT_EQ(system.has_address(nullptr, "10.0.3.1"), 1);
  char text[ADDRESS_BUFFER_SIZE];
  EXPECT_EQ(system.read_adapter_settings(nullptr, text, sizeof text), 0);
  EXPECT_STREQ(text, "10.0.3.1");
  char names[2 * (NAME_SIZE + 3) + 1];
  EXPECT_EQ(system.list_active_adapter_names(names), 0);
  EXPECT_STREQ(names, "{B-3} ");
  EXPECT_EQ(system.pad_blank_addresses("A", 1), -1);
  EXPECT_EQ(system.purge_address(nullptr, "10.0.2.1"), -1) << "the first active alone";
}

TEST(Selection, LeavesExcludedAdaptersAlone) {
  const TestHost host(adapters({"Alpha", "Beta", "Gamma"}) + "hardware_address = \"00-0C-29-01\"");
  excluded_adapters->append(excluded(EXCLUDED_NAME, "Alpha"));
  excluded_adapters->append(excluded(EXCLUDED_ADDRESS, std::string("\0\0\0\x0C", 4)));
  System system;
  EXPECT_EQ(written_by([&] { system.list_adapters(); }),
            "INFO  @ - Configured network interfaces:\nINFO  @ -  #1 : Alpha-2 [EXCLUDED]\n"
            "INFO  @ -  #2 : Beta-3\nINFO  @ -  #3 : Gamma-4 [EXCLUDED]\n"
            "INFO  @ -  first active: \"Beta-3\"\n");
  excluded_adapters->clear();
}

TEST(AddressCommands, RefreshEveryThousandthTime) {
  const TestHost host(adapters({"A"}));
  System system;
  // The table is believed in until it is read again: another program's change shows when.
  const auto operations_until_refresh = [&] {
    EXPECT_EQ(system.add_address("A", "10.0.0.5", "255.0.0.0"), 0);
    std::int32_t position = 0;
    EXPECT_EQ(system.adapter(0)->find_address_slot(inet_addr("10.0.0.5"), position), 0);
    EXPECT_EQ(host->delete_address(system.adapter(0)->address_slot(position)->nte_context()), 0U);
    int operations = 0;
    while (system.has_address("A", "10.0.0.5") == 1 && operations < 2000) {
      EXPECT_EQ(system.delete_address("A", "10.0.0.250"), -1);
      ++operations;
    }
    return operations;
  };
  EXPECT_LE(operations_until_refresh(), ADAPTER_REFRESH_INTERVAL);
  EXPECT_EQ(operations_until_refresh(), ADAPTER_REFRESH_INTERVAL - 1);
}

TEST(AddressCommands, AnAddressHeldByAnyAdapterIsNotAddedAgain) {
  const TestHost host(adapters({"A", "B"}));
  System system;
  host->keep_diary();
  EXPECT_EQ(system.add_address("B", "10.0.2.1", "255.0.0.0"), 0);
  // It has gone from the host: the refresh shows it, and it is added. So does one that came to it.
  ASSERT_EQ(host->delete_address(1), 0U);
  EXPECT_EQ(system.add_address("B", "10.0.2.1", "255.0.0.0"), 0);
  EXPECT_THAT(host->diary(),
              ElementsAre("delete 10.0.2.1", "add 10.0.2.1/255.0.0.0 to 3", "sleep 1"));
  ULONG context = 0;
  ASSERT_EQ(host->add_address(inet_addr("10.0.2.9"), inet_addr("255.0.0.0"), 2, context), 0U);
  EXPECT_EQ(system.add_address("B", "10.0.2.9", "255.0.0.0"), -1);
  EXPECT_EQ(system.has_address("A", "10.0.2.9"), 1);
}

TEST(AddressCommands, AreTriedTwice) {
  for (const char* function : {"AddIPAddress", "DeleteIPAddress"}) {
    const TestHost host(adapters({"A"}) + "[[faults]]\ncode = 1168\ntimes = 1\nfunction = \"" +
                        function + "\"");
    System system;
    EXPECT_EQ(system.add_address("A", "10.0.0.5", "255.0.0.0"), 0) << function;
    EXPECT_EQ(system.delete_address("A", "10.0.0.5"), 0) << function;
  }
}

TEST(Stress, CountsThroughTheEndsOfItsOctets) {
  const TestHost host(one_adapter(""));
  System system;
  host->keep_diary();
  for (const auto& [start, next] : {std::pair{"10.0.0.253", "10.0.0.254"},
                                    {"10.0.254.254", "10.0.255.1"},
                                    {"10.1.255.254", "10.2.0.1"},
                                    {"10.254.255.254", "10.255.0.1"},
                                    {"9.255.255.254", "10.0.0.1"}}) {
    written_by([&, start = start] { run_stress(system, "Ether", "1", "2", start, "255.0.0.0"); });
    EXPECT_THAT(host->diary(), testing::Contains(std::string("add ") + next + "/255.0.0.0 to 2"));
  }
}

TEST(DhcpClient, ProbesAndPads) {
  const TestHost host("libraries.iphlpapi = false\n" + one_adapter("10.0.0.1/8", 6));
  System system;
  host->keep_diary();
  EXPECT_EQ(system.find_first_active_adapter(), -1);
  EXPECT_THAT(host->diary(), ElementsAre("slot 5 of E100B1 = 0.0.255.255/255.255.0.0",
                                         "slot 5 of E100B1 = 0.0.0.0/0.0.0.0"));
  char names[8] = "left";
  EXPECT_EQ(system.list_active_adapter_names(names), 0);
  EXPECT_STREQ(names, "");
  EXPECT_EQ(system.pad_blank_addresses(nullptr, 9), 9);
  EXPECT_EQ(system.pad_blank_addresses("none", 9), -1);
  EXPECT_THAT(held_lines(), ElementsAre("ERROR @ system:# - Cannot find <none> adapter."));
}

TEST(DhcpClient, RefusesToCutAListShort) {
  std::string addresses;
  for (int i = 0; i < 10011; ++i) {
    addresses += "10.0." + std::to_string(i / 250) + "." + std::to_string(i % 250 + 1) + "/8 ";
  }
  const TestHost host("libraries.iphlpapi = false\n" + one_adapter(addresses));
  System system;
  EXPECT_EQ(system.pad_blank_addresses(nullptr, 0), -1);
  EXPECT_THAT(
      held_lines(),
      ElementsAre("WARN  @ system:# - Cannot pad blank addresses to <first active> adapter.",
                  "      @ adapter:# - Cannot set Tcpip parms for Adapter <E100B1>.",
                  "      @ adapter:# - more than 10010 addresses"));
}

}  // namespace

#include "brenlo/src/adapter.h"

#include <winsock2.h>

#include "shared/include/vmk_dhcpcsvc.h"
#include "shared/include/vmk_iphlpapi.h"
#include "tests/support/hosts.h"

namespace {

using testing::ElementsAre;

constexpr std::uint8_t MAC[6] = {};

/// In a description, what follows stands under the adapter's TCP/IP parameters.
const std::string PARAMETERS =
    "[registry.\"SYSTEM\\\\CurrentControlSet\\\\Services\\\\Tcpip\\\\Parameters\\\\Interfaces\\\\"
    "E100B1\"]\n";

/// A host with the adapter "E100B1" (index 2), both libraries loaded, and the Adapter on it.
class Fixture {
 public:
  Fixture(IpMechanism mechanism, const std::string& description)
      : host_(description),
        adapter_(mechanism == MECHANISM_DHCP_CLIENT ? "E100B1" : "Ethernet", 2, 6, MAC,
                 static_cast<std::uint32_t>(mechanism)) {}

  Adapter* operator->() const { return &adapter_; }
  [[nodiscard]] SimulatedHost* host() const { return host_.operator->(); }

  /// The entries, each as "ADDRESS/MASK ".
  [[nodiscard]] std::string table() const {
    std::string text;
    for (int i = 0; i < adapter_.address_count(); ++i) {
      const AddressSlot& slot = *adapter_.address_slot(i);
      text += std::string(slot.address_text()) + "/" + slot.mask_text() + " ";
    }
    return text;
  }

 private:
  Bindings host_;
  mutable Adapter adapter_;
};

std::string registry_list(SimulatedHost& host, const char* value) {
  const RegistryValue* found = nullptr;
  const DWORD code = host.find_value(
      "System\\CurrentControlSet\\Services\\Tcpip\\Parameters\\Interfaces\\E100B1", value, found);
  std::string text = code == NO_ERROR ? found->data : "none";
  std::replace(text.begin(), text.end(), '\0', ',');
  return text;
}

// ---- Entries -----------------------------------------------------------------------------------

TEST(AddressSlots, KeepTextAndValueInStep) {
  AddressSlot slot(inet_addr("10.0.0.1"), inet_addr("255.255.255.0"), 0);
  slot.set_address("0.0.0.0");
  EXPECT_TRUE(slot.is_blank());
  slot.set_address("nonsense");
  EXPECT_EQ(slot.address(), 0xFFFFFFFFU);
  // A text that does not fit is cut, and its value is that of what is kept.
  slot.set_address("0.0.0.00000000000000000000000009");
  EXPECT_EQ(std::string(slot.address_text()).size(), 19U);
  EXPECT_EQ(slot.address(), inet_addr(slot.address_text()));
}

// ---- IP Helper ---------------------------------------------------------------------------------

TEST(IpHelperAdapter, ReadsItsOwnRowsInOrder) {
  const Fixture adapter(MECHANISM_IP_HELPER,
                        one_adapter("192.168.0.1/24 0.0.0.0/0 10.0.0.10/8 10.0.0.2/8") +
                            "gateways = [\"10.0.0.3\", \"10.0.0.4\"]\nconnection = \"Office\"\n"
                            "[[adapters]]\nname = \"B\"\nindex = 3\n"
                            "addresses = [\"10.0.0.5/255.0.0.0\"]\n");
  EXPECT_EQ(adapter.table(), "10.0.0.2/255.0.0.0 10.0.0.10/255.0.0.0 192.168.0.1/255.255.255.0 ");
  EXPECT_STREQ(adapter->description(), "Ethernet-2");
  EXPECT_STREQ(adapter->name(), "E100B1");
  EXPECT_STREQ(adapter->connection_name(), "Office");
  char name[sizeof "Office"];
  EXPECT_EQ(read_connection_name("E100B1", name, sizeof name), 0);
  EXPECT_STREQ(name, "Office");
  EXPECT_EQ(read_connection_name("E100B1", name, sizeof name - 1), -1);
  EXPECT_EQ(read_connection_name("none", name, sizeof name), -1);
  {
    const std::string longer(300, 'n');
    const TestHost named(one_adapter("") + "connection = \"" + longer + "\"");
    char room[301] = "";
    EXPECT_EQ(read_connection_name("E100B1", room, sizeof room), 0);
    EXPECT_EQ(room, longer);
  }
  EXPECT_EQ(adapter->read_gateways(), 0);
  ASSERT_EQ(adapter->gateway_count(), 2);
  EXPECT_STREQ(adapter->gateway(1), "10.0.0.4");
}

TEST(Adapters, TakeAHundredGateways) {
  std::string gateways;
  for (int i = 0; i < 120; ++i) gateways += "\"10.0.0." + std::to_string(i) + "\",";
  for (const IpMechanism mechanism : {MECHANISM_DHCP_CLIENT, MECHANISM_IP_HELPER}) {
    const Fixture adapter(mechanism, one_adapter("") + "gateways = [" + gateways + "]");
    ASSERT_EQ(adapter->gateway_count(), 100);
    EXPECT_STREQ(adapter->gateway(99), "10.0.0.99");
  }
}

TEST(IpHelperAdapter, AddsAtTheSortedPositionAndDeletesOnlyItsOwn) {
  const Fixture adapter(MECHANISM_IP_HELPER, one_adapter("10.0.0.1/8 10.0.0.9/8"));
  adapter.host()->keep_diary();
  EXPECT_EQ(adapter->add_address("10.0.0.7", "0.0.0.0"), 0);
  EXPECT_EQ(adapter->address_capacity(), 128);
  EXPECT_EQ(adapter.table(), "10.0.0.1/255.0.0.0 10.0.0.7/255.0.0.0 10.0.0.9/255.0.0.0 ");
  EXPECT_NE(adapter->address_slot(1)->nte_context(), 0U);
  EXPECT_EQ(adapter->delete_address("10.0.0.9"), -1);
  EXPECT_EQ(adapter->delete_address("10.0.0.7"), 0);
  EXPECT_EQ(adapter->purge_address("10.0.0.1"), 0);
  EXPECT_THAT(adapter.host()->diary(),
              ElementsAre("add 10.0.0.7/255.0.0.0 to 2", "sleep 1", "delete 10.0.0.7", "sleep 1",
                          "delete 10.0.0.1", "sleep 1"));
  EXPECT_EQ(adapter.table(), "10.0.0.9/255.0.0.0 ");
  EXPECT_EQ(adapter->purge_address("10.0.0.1"), -1);
}

TEST(IpHelperAdapter, KeepsTheContextsOfWhatIsStillThere) {
  const Fixture adapter(MECHANISM_IP_HELPER, one_adapter("10.0.0.1/8"));
  EXPECT_EQ(adapter->add_address("10.0.0.5", "255.0.0.0"), 0);
  EXPECT_EQ(adapter->add_address("10.0.0.6", "255.0.0.0"), 0);
  const auto context = adapter->address_slot(1)->nte_context();
  EXPECT_EQ(adapter.host()->delete_address(adapter->address_slot(2)->nte_context()), 0U);
  EXPECT_EQ(adapter->has_address("10.0.0.6"), 1);
  EXPECT_EQ(adapter->refresh_addresses(), 0);
  EXPECT_EQ(adapter.table(), "10.0.0.1/255.0.0.0 10.0.0.5/255.0.0.0 ");
  EXPECT_EQ(adapter->address_slot(1)->nte_context(), context);
  EXPECT_EQ(adapter->address_slot(0)->nte_context(), 0U);
  EXPECT_EQ(adapter->address_slot(0)->added_here(), 0U);
  std::unique_ptr<SavedContext[]> saved;
  std::int32_t count = 0;
  EXPECT_EQ(adapter->restore_contexts(nullptr, 0), -1);
  EXPECT_EQ(adapter->save_contexts(saved, count), 0);
  EXPECT_EQ(adapter->restore_contexts(std::move(saved), count), 0);
}

TEST(IpHelperAdapter, ChoosesTheMaskOfTheAddressClass) {
  struct Case {
    const char* address;
    const char* mask;
    bool reported;
  };
  for (const Case& it : {Case{"1.2.3.4", "255.0.0.0", false},
                         {"126.0.0.1", "255.0.0.0", false},
                         {"128.0.0.1", "255.255.0.0", false},
                         {"191.1.1.1", "255.255.0.0", false},
                         {"192.1.1.1", "255.255.255.0", false},
                         {"223.1.1.1", "255.255.255.0", false},
                         {"127.0.0.1", "255.255.255.0", true},
                         {"224.0.0.1", "255.255.255.0", true},
                         {"0.0.0.1", "255.255.255.0", true}}) {
    const Fixture adapter(MECHANISM_IP_HELPER, one_adapter(""));
    adapter.host()->keep_diary();
    int result = 0;
    const std::string written =
        written_by([&] { result = adapter->add_address(it.address, "0.0.0.0"); });
    EXPECT_EQ(result, it.reported ? -1 : 0);
    EXPECT_EQ(adapter.host()->diary().front(),
              std::string("add ") + it.address + "/" + it.mask + " to 2");
    EXPECT_EQ(!written.empty(), it.reported) << written;
  }
}

TEST(IpHelperAdapter, ContextsAreFoundByTheWholeText) {
  const Fixture adapter(MECHANISM_IP_HELPER, one_adapter("10.0.0.12/8 10.0.0.1/8"));
  EXPECT_EQ(find_nte_context("10.0.0.12"), 1U);
  EXPECT_EQ(find_nte_context("10.0.0.1"), 2U);
  EXPECT_EQ(find_nte_context("10.0.0.2"), 0U);
  EXPECT_EQ(find_nte_context("0000000000000010.0.0.1"), 0U);
}

// ---- DHCP client -------------------------------------------------------------------------------

TEST(DhcpClientAdapter, UsesBlankSlotsFromTheSixthOn) {
  const Fixture adapter(MECHANISM_DHCP_CLIENT, one_adapter("10.0.0.1/8", 6));
  adapter.host()->keep_diary();
  EXPECT_EQ(adapter->add_address("10.0.0.1", "255.0.0.0"), 0);
  EXPECT_EQ(adapter->add_address("172.16.0.5", "0.0.0.0"), 0);
  EXPECT_EQ(adapter->add_address("172.16.0.5", "255.0.0.0"), -1);
  EXPECT_THAT(held_lines(),
              ElementsAre("ERROR @ adapter:# - IPAddress <172.16.0.5> already configured"));
  EXPECT_EQ(adapter->add_address("010.00000000.1.00005", "255.255.0.0"), -1);
  EXPECT_THAT(held_lines(),
              ElementsAre("WARN  @ adapter:# - Cannot add IPAddress "
                          "<010.00000000.1.00005> with mask <255.255.0.0>",
                          "      @ adapter:# - address or mask longer than 19 characters"));
  EXPECT_EQ(adapter->probe_address_change(), 0);
  EXPECT_EQ(adapter->add_address("10.0.0.6", "255.0.0.0"), 0);
  EXPECT_EQ(adapter->add_address("10.0.0.7", "255.0.0.0"), -1);
  EXPECT_THAT(held_lines(),
              ElementsAre("ERROR @ adapter:# - Cannot find unused slot to add 10.0.0.7"));
  EXPECT_EQ(adapter->purge_address("10.0.0.1"), 0);
  EXPECT_EQ(adapter->delete_address("172.16.0.5"), 0);
  EXPECT_EQ(adapter->delete_address("172.16.0.5"), -1);
  EXPECT_THAT(held_lines(),
              ElementsAre("ERROR @ adapter:# - Cannot find address <172.16.0.5> to delete."));
  EXPECT_THAT(adapter.host()->diary(), ElementsAre("slot 5 of E100B1 = 172.16.0.5/255.255.0.0",
                                                   "slot 6 of E100B1 = 0.0.255.255/255.255.0.0",
                                                   "slot 6 of E100B1 = 0.0.0.0/0.0.0.0",
                                                   "slot 6 of E100B1 = 10.0.0.6/255.0.0.0",
                                                   "slot 5 of E100B1 = 0.0.0.0/0.0.0.0"));
  EXPECT_EQ(registry_list(*adapter.host(), "IPAddress"),
            "10.0.0.1,0.0.0.0,0.0.0.0,0.0.0.0,0.0.0.0,0.0.0.0,10.0.0.6,,");
}

TEST(DhcpClientAdapter, HasAsManySlotsAsTheShorterList) {
  for (const char* list : {"IPAddress = [\"10.0.0.1\"]", "SubnetMask = [\"255.0.0.0\"]"}) {
    const Fixture adapter(MECHANISM_DHCP_CLIENT,
                          one_adapter("10.0.0.1/8 10.0.0.2/8") + PARAMETERS + list);
    EXPECT_EQ(adapter.table(), "10.0.0.1/255.0.0.0 ");
  }
}

TEST(DhcpClientAdapter, WritesItsListsWithBlanksAtTheEnd) {
  const Fixture adapter(MECHANISM_DHCP_CLIENT, one_adapter("0.0.0.0/0 10.0.0.1/8 10.0.0.2/16"));
  EXPECT_EQ(adapter->count_blank_slots(), 1);
  EXPECT_EQ(adapter->write_tcpip_settings(3), 0);
  EXPECT_EQ(registry_list(*adapter.host(), "IPAddress"),
            "10.0.0.1,10.0.0.2,0.0.0.0,0.0.0.0,0.0.0.0,,");
  EXPECT_EQ(registry_list(*adapter.host(), "SubnetMask"),
            "255.0.0.0,255.255.0.0,0.0.0.0,0.0.0.0,0.0.0.0,,");
  EXPECT_EQ(adapter->address_count(), 5);
  EXPECT_EQ(adapter->write_tcpip_settings(99999), 0);
  EXPECT_EQ(adapter->address_count(), 10010);

  const Fixture empty(MECHANISM_DHCP_CLIENT, one_adapter(""));
  EXPECT_EQ(empty->write_tcpip_settings(0), 0);
  EXPECT_EQ(registry_list(*empty.host(), "IPAddress"), ",");
}

TEST(Adapters, ReportWhatFailsAtItsLevel) {
  struct Case {
    IpMechanism mechanism;
    std::string host;
    int (*action)(const Fixture&);
    const char* report;
  };
  const auto add = [](const Fixture& it) { return it->add_address("10.0.0.5", "0.0.0.0"); };
  const auto read = [](const Fixture& it) { return it->read_tcpip_settings(); };
  const auto purge = [](const Fixture& it) { return it->purge_address("10.0.0.1"); };
  const std::string fault = "[[faults]]\ncode = 5\nfunction = ";
  for (const auto& [mechanism, host, action, report] :
       {Case{MECHANISM_DHCP_CLIENT, fault + "\"RegQueryValueExA\"", read,
             "Cannot get Tcpip parms for Adapter <E100B1>."},
        {MECHANISM_DHCP_CLIENT, PARAMETERS + "SubnetMask = false", read,
         "Cannot get Tcpip settings for Adapter <E100B1>."},
        {MECHANISM_DHCP_CLIENT, fault + "\"RegQueryValueExA\"",
         [](const Fixture& it) { return it->read_gateways(); },
         "Cannot get the default gateway for Adapter <E100B1>."},
        {MECHANISM_DHCP_CLIENT, fault + "\"RegSetValueExA\"",
         [](const Fixture& it) { return it->write_tcpip_settings(3); },
         "Cannot set Tcpip parms for Adapter <E100B1>."},
        {MECHANISM_DHCP_CLIENT, fault + "\"DhcpNotifyConfigChange\"",
         [](const Fixture& it) { return it->probe_address_change(); },
         "Cannot add IPAddress <0.0.255.255> with mask <255.255.0.0>"},
        {MECHANISM_DHCP_CLIENT, fault + "\"DhcpNotifyConfigChange\"", add,
         "Cannot add IPAddress <10.0.0.5> with mask <0.0.0.0>"},
        {MECHANISM_DHCP_CLIENT, fault + "\"DhcpNotifyConfigChange\"\nskip = 1",
         [](const Fixture& it) {
           EXPECT_EQ(it->add_address("10.0.0.5", "0.0.0.0"), 0);
           return it->delete_address("10.0.0.5");
         },
         "Cannot delete IPAddress <10.0.0.5>"},
        {MECHANISM_IP_HELPER, fault + "\"AddIPAddress\"", add, "cannot add address <10.0.0.5>."},
        {MECHANISM_IP_HELPER, fault + "\"DeleteIPAddress\"", purge,
         "cannot delete address <10.0.0.1>."},
        {MECHANISM_IP_HELPER, fault + "\"GetAdaptersInfo\"", purge,
         "Cannot identify context for IPAddress <10.0.0.1>"}}) {
    written_by([&, mechanism = mechanism, &host = host, action = action, report = report] {
      const Fixture adapter(mechanism, one_adapter("10.0.0.1/8", 6) + host);
      const std::int32_t count = adapter->address_count();
      errmsg_push("left over");
      EXPECT_EQ(action(adapter), -1) << report;
      EXPECT_EQ(adapter->address_count(), count) << report;
      const std::vector<std::string> lines = held_lines();
      EXPECT_EQ(lines.front(), std::string("WARN  @ adapter:# - ") + report);
      EXPECT_GT(lines.size(), 1U) << report;
      EXPECT_THAT(lines.back(), testing::Not(testing::EndsWith("over"))) << report;
    });
  }
}

// ---- Current address ---------------------------------------------------------------------------

TEST(CurrentAddress, IsTheFirstUsableOfFourValues) {
  const std::string second =
      "[registry.\"SYSTEM\\\\CurrentControlSet\\\\Services\\\\E100B1\\\\Parameters\\\\Tcpip\"]\n";
  for (const auto& [registry, address] :
       {std::pair<std::string, const char*>{PARAMETERS + "IPAddress = [\"10.0.0.1\", \"10.0.0.2\"]",
                                            "10.0.0.1"},
        {PARAMETERS + "IPAddress = [\"0.0.0.0\"]\nDhcpIPAddress = \"10.0.0.3\"", "10.0.0.3"},
        {PARAMETERS + "IPAddress = \"10.0.0.4\"\nDhcpIPAddress = \"0.0.0.0\"\n" + second +
             "IPAddress = \"10.0.0.5\"",
         "10.0.0.5"},
        {PARAMETERS + "IPAddress = []\n" + second +
             "IPAddress = []\nDhcpIPAddress = [\"10.0.0.6\"]",
         "10.0.0.6"},
        {PARAMETERS + "IPAddress = [\"0.0.0.0\"]", nullptr}}) {
    const Fixture adapter(MECHANISM_IP_HELPER, one_adapter("") + registry);
    char text[ADDRESS_BUFFER_SIZE] = "untouched";
    EXPECT_EQ(adapter->current_ip_address(text, sizeof text), address != nullptr ? 0 : -1);
    EXPECT_STREQ(text, address != nullptr ? address : "untouched") << registry;
  }
  EXPECT_EQ(held_lines().front(), "WARN  @ adapter:# - Cannot determine IP address. ");
  const Fixture nameless(MECHANISM_IP_HELPER,
                         "[[faults]]\nfunction = \"GetAdaptersInfo\"\ncode = 5");
  char text[8];
  EXPECT_EQ(nameless->current_ip_address(text, sizeof text), -1);
  EXPECT_THAT(held_lines(), ElementsAre("ERROR @ adapter:# - Adapter Key not found"));
}

}  // namespace

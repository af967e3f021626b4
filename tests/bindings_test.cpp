
#include <csignal>

#include "shared/include/vmk_dhcpcsvc.h"
#include "shared/include/vmk_iphlpapi.h"
#include "tests/support/hosts.h"

namespace {

using testing::ElementsAre;

std::string output_of(void (*action)()) {
  testing::internal::CaptureStdout();
  action();
  return testing::internal::GetCapturedStdout();
}

TEST(IpHelperBinding, IsAvailableOnlyWhole) {
  const std::vector<std::string> names = {"GetIfTable",   "GetAdaptersInfo", "GetIpAddrTable",
                                          "AddIPAddress", "DeleteIPAddress", "SetIfEntry",
                                          "GetIfEntry"};
  for (std::size_t missing = 0; missing <= names.size(); ++missing) {
    std::string list;
    for (std::size_t i = 0; i < names.size(); ++i) {
      if (i != missing) list += "\"" + names[i] + "\",";
    }
    const Bindings bindings("libraries.iphlpapi = [" + list + "]");
    EXPECT_EQ(iphlpapi_available(), missing == names.size() ? 1 : 0) << missing;
    EXPECT_EQ(iphlpapi_load(), 0);
    EXPECT_EQ(iphlpapi_unload(), 0);
    EXPECT_EQ(iphlpapi_available(), 0);
  }
  // Without its library it is loaded and unloaded all the same.
  const Bindings none("libraries = {iphlpapi = false, dhcpcsvc = false}");
  EXPECT_EQ(iphlpapi_available(), 0);
}

TEST(IpHelperBinding, ReportsWhatFailedAndWhy) {
  const Bindings bindings(one_adapter("10.0.0.1/8"));
  const auto reported = [](const std::string& failure, const std::string& arguments) {
    EXPECT_THAT(held_lines(), ElementsAre("WARN  @ vmk_iphlpapi:# - " + failure + "\\r",
                                          "      @ vmk_iphlpapi:# - " + arguments));
  };
  errmsg_push("left over");
  ULONG size = 0;
  EXPECT_EQ(iphlpapi_get_ip_addr_table(nullptr, &size, TRUE), 122U);
  EXPECT_EQ(size, sizeof(MIB_IPADDRTABLE));
  reported("GetIpAddrTable Failed. Reason=The data area passed to a system call is too small.",
           "pIpAddrTable=0x00000000, pdwSize=P, bOrder=1");
  EXPECT_EQ(iphlpapi_delete_ip_address(77), 1168U);
  reported("DeleteIPAddress Failed. Reason=Element not found.", "NTEContext=77");
  MIB_IFROW row = {};
  row.dwIndex = 9;
  row.dwAdminStatus = 2;
  EXPECT_EQ(iphlpapi_set_if_entry(&row), 13U);
  reported("SetIfEntry Failed. Reason=The data is invalid.", "dwIndex=9, dwAdminStatus=2");
  EXPECT_EQ(iphlpapi_get_if_entry(&row), 13U);
  reported("GetIfEntry Failed. Reason=The data is invalid.", "dwIndex=9");
  errmsg_begin();
  row.dwIndex = 2;
  EXPECT_EQ(iphlpapi_set_if_entry(&row), 0U);
  row.dwAdminStatus = 0;
  EXPECT_EQ(iphlpapi_get_if_entry(&row), 0U);
  EXPECT_EQ(row.dwAdminStatus, 2U);
  EXPECT_STREQ(errmsg_compose(), "");
}

TEST(IpHelperBinding, AFunctionThatIsMissingIsNotCalled) {
  const Bindings bindings("libraries.iphlpapi = []");
  EXPECT_THAT(output_of([] {
                ULONG size = 0;
                MIB_IFROW row = {};
                EXPECT_NE(iphlpapi_get_if_table(nullptr, &size, TRUE), 0U);
                EXPECT_NE(iphlpapi_get_ip_addr_table(nullptr, &size, TRUE), 0U);
                EXPECT_NE(iphlpapi_get_adapters_info(nullptr, &size), 0U);
                EXPECT_NE(iphlpapi_add_ip_address(0, 0, 0, &size, &size), 0U);
                EXPECT_NE(iphlpapi_delete_ip_address(0), 0U);
                EXPECT_NE(iphlpapi_set_if_entry(&row), 0U);
                EXPECT_NE(iphlpapi_get_if_entry(&row), 0U);
              }),
              testing::MatchesRegex(
                  "(ERROR .\\\\vmk_iphlpapi:[0-9]+: assertion failed - cannot locate function "
                  "(GetIfTable|GetIpAddrTable|GetAdaptersInfo|AddIPAddress|DeleteIPAddress|"
                  "SetIfEntry|GetIfEntry) in IPHLPAPI.DLL\n){7}"));
  EXPECT_STREQ(errmsg_compose(), "");
}

TEST(DhcpClientBinding, PassesTheBytesOfTheTexts) {
  const Bindings bindings(one_adapter("10.0.0.1/8", 9));
  bindings->keep_diary();
  EXPECT_EQ(dhcpcsvc_notify_config_change("E100B1", 1, "10.1.2.3", "255.255.0.0"), 1);
  EXPECT_EQ(dhcpcsvc_notify_config_change("E100B1", 2, "10.1.2", "300.-1.x"), 1);
  EXPECT_THAT(bindings->diary(), ElementsAre("slot 1 of E100B1 = 10.1.2.3/255.255.0.0",
                                             "slot 2 of E100B1 = 10.1.2.0/44.255.0.0"));
}

TEST(DhcpClientBinding, RefusalsHaveTheirWords) {
  const std::string longest(79, 'n');
  const Bindings bindings("[[adapters]]\nname = \"" + longest + "\"\nindex = 1\nblank_slots = 2\n" +
                          "[[faults]]\nfunction = \"DhcpNotifyConfigChange\"\nskip = 2\n" +
                          "raise = true");
  const auto notify = [](const std::string& name, int slot) {
    errmsg_begin();
    errmsg_push("left over");
    return dhcpcsvc_notify_config_change(name.c_str(), slot, "10.0.0.1", "255.0.0.0");
  };
  EXPECT_EQ(notify(longest, 0), 1);
  EXPECT_THAT(held_lines(), ElementsAre("left over"));
  EXPECT_EQ(notify(longest + "n", 0), 0);
  EXPECT_THAT(held_lines(),
              ElementsAre("ERROR @ vmk_dhcpcsvc:# - Cannot convert Adapter name to Wide chars."));
  EXPECT_EQ(notify(longest, 2), 0);
  EXPECT_THAT(held_lines(), ElementsAre("ERROR @ vmk_dhcpcsvc:# - Failed DhcpNotifyConfigChange."));
  const auto before = std::signal(SIGSEGV, SIG_IGN);
  EXPECT_EQ(notify(longest, 0), 0);
  EXPECT_EQ(std::signal(SIGSEGV, before), SIG_IGN) << "faults elsewhere are none of the guard's";
  EXPECT_THAT(held_lines(),
              ElementsAre("ERROR @ vmk_dhcpcsvc:# - Exception in DhcpNotifyConfigChange."));
  EXPECT_EQ(dhcpcsvc_unload(), 0);
  EXPECT_EQ(dhcpcsvc_available(), 0);
  EXPECT_THAT(
      output_of([] { EXPECT_EQ(dhcpcsvc_notify_config_change("n", 0, "1.2.3.4", "0"), 0); }),
      testing::MatchesRegex("ERROR .\\\\vmk_dhcpcsvc:[0-9]+: assertion failed - cannot locate "
                            "function DhcpNotifyConfigChange in DHCPCSVC.DLL\n"));
  EXPECT_STREQ(errmsg_compose(), "");
}

}  // namespace

// The host of hosts/default.toml, so that the program starts without reading or parsing a file. A
// test holds the two against each other.

#include <arpa/inet.h>

#include "platform/simulated/host_description.h"

HostDescription default_description() {
  constexpr DWORD MASK = 0x00FFFFFF;  // 255.255.255.0
  HostDescription host;
  host.version.service_pack = "Service Pack 2";
  host.user = "operator";
  host.adapters.resize(3);
  AdapterDescription& loopback = host.adapters[0];
  loopback.name = "{B2A7F3D0-5C1E-4E8A-9D36-0F4B7C21A9E5}";
  loopback.description = "MS TCP Loopback interface";
  loopback.index = 1;
  loopback.type = MIB_IF_TYPE_LOOPBACK;
  loopback.addresses = {{inet_addr("127.0.0.1"), 0xFF}};
  loopback.bound = false;
  AdapterDescription& ethernet = host.adapters[1];
  ethernet.name = "{6D3C51E2-7A0B-4C1F-9E44-2B5A10C3D7F8}";
  ethernet.description = "Fast Ethernet Adapter";
  ethernet.connection = "Local Area Connection";
  ethernet.index = 2;
  ethernet.hardware_address = {0x00, 0x0C, 0x29, 0x3A, 0x5B, 0x7C};
  ethernet.addresses = {{inet_addr("192.168.1.10"), MASK}, {inet_addr("192.168.1.200"), MASK}};
  ethernet.gateways = {"192.168.1.1"};
  ethernet.blank_slots = 16;
  AdapterDescription& wireless = host.adapters[2];
  wireless.name = "{91E4C0B7-2F65-4D3B-8A19-D07E5B86C342}";
  wireless.description = "Wireless Adapter";
  wireless.connection = "Wireless Network Connection";
  wireless.index = 3;
  wireless.type = 71;
  wireless.hardware_address = {0x00, 0x16, 0x6F, 0x84, 0x2D, 0x19};
  wireless.addresses = {{0, 0}};
  return host;
}

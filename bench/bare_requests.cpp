// The least that adding and deleting a run of addresses costs: the requests alone, each answered by
// the kernel before the next.
//   bare_requests INTERFACE FIRST COUNT PREFIX-LENGTH [WAIT]
// waits WAIT milliseconds (default 0) after each. The last octet goes from 1 to 254. Ends with 1,
// and the reason, at the first request that fails.

#include <arpa/inet.h>
#include <net/if.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/host/exact_wait.h"
#include "platform/linux/rtnetlink.h"

namespace {

RtOutcome change(RtRequests& requests, std::uint16_t type, unsigned flags, const ifaddrmsg& part,
                 std::uint32_t address) {
  RtRequest request(type, flags);
  request.part<ifaddrmsg>() = part;
  request.put(IFA_LOCAL, htonl(address));
  request.put(IFA_ADDRESS, htonl(address));
  return requests.change(request);
}

}  // namespace

int main(int argument_count, char** arguments) {
  if (argument_count < 5) return 2;
  ifaddrmsg part = {};
  part.ifa_family = AF_INET;
  part.ifa_index = if_nametoindex(arguments[1]);
  part.ifa_prefixlen = static_cast<std::uint8_t>(std::atoi(arguments[4]));
  const std::uint32_t first = ntohl(inet_addr(arguments[2]));
  const int count = std::atoi(arguments[3]);
  const int wait = argument_count > 5 ? std::atoi(arguments[5]) : 0;

  struct Phase {
    std::uint16_t type;
    unsigned flags;
  };
  RtRequests requests;
  for (const auto& [type, flags] :
       {Phase{RTM_NEWADDR, NLM_F_CREATE | NLM_F_EXCL}, Phase{RTM_DELADDR, 0}}) {
    std::uint32_t address = first;
    for (int i = 0; i < count; ++i) {
      const int error = change(requests, type, flags, part, address).error;
      if (error != 0) {
        std::fprintf(stderr, "address %d: %s\n", i, std::strerror(error));
        return 1;
      }
      address += (address & 0xFF) == 254 ? 3 : 1;
      if (wait > 0) wait_exactly(static_cast<DWORD>(wait));
    }
  }
}

#include "tests/support/namespace.h"

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <regex>
#include <stdexcept>

NetworkNamespace::NetworkNamespace() : before_(open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC)) {
  if (before_ < 0 || unshare(CLONE_NEWNET) != 0) {
    refusal_ = std::string("this machine allows no network namespace: ") + std::strerror(errno);
  }
}

NetworkNamespace::~NetworkNamespace() {
  if (refusal_.empty()) setns(before_, CLONE_NEWNET);
  close(before_);
}

std::string run_shell(const std::string& command) {
  std::FILE* pipe = popen(("PATH=$PATH:/usr/sbin:/sbin; " + command).c_str(), "r");
  if (pipe == nullptr) throw std::runtime_error("no shell");
  std::string output;
  char piece[4096];
  std::size_t length = 0;
  while ((length = std::fread(piece, 1, sizeof piece, pipe)) > 0) output.append(piece, length);
  if (pclose(pipe) != 0) throw std::runtime_error(command);
  return output;
}

std::vector<std::string> kernel_addresses() {
  static const std::regex ITEM(
      "\"ifname\":\"([^\"]*)\"|\"local\":\"([^\"]*)\"[^}]*?\"prefixlen\":([0-9]+)");
  const std::string listing = run_shell("ip -j -4 addr show");
  std::vector<std::string> addresses;
  std::string interface;
  for (std::sregex_iterator it(listing.begin(), listing.end(), ITEM), end; it != end; ++it) {
    if ((*it)[1].matched) {
      interface = (*it)[1];
    } else {
      addresses.push_back(interface + " " + (*it)[2].str() + "/" + (*it)[3].str());
    }
  }
  std::sort(addresses.begin(), addresses.end());
  return addresses;
}

#include "tests/support/namespace.h"

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "tests/support/program.h"

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

std::string kernel_addresses() {
  return run_shell(
      "ip -o -4 addr show | awk '$4 != \"127.0.0.1/8\" { print $2, $4 }' | LC_ALL=C sort | tr '\n' "
      ",");
}

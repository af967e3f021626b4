// The host behind the layer, and its choice by the environment.

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string_view>

#include "base/errno_keeper.h"
#include "platform/host/calls.h"
#include "platform/host/host.h"
#include "platform/linux/linux_host.h"
#include "platform/simulated/host_description.h"
#include "platform/simulated/simulated_host.h"

namespace {

/// Never destroyed: exit handlers may still ask the host, and the process ends anyway.
std::unique_ptr<Host>& installed() {
  static auto& host = *new std::unique_ptr<Host>;
  return host;
}

Generation generation;

[[noreturn]] void end_without_host(const char* reason) {
  std::fprintf(stderr, "%s\n", reason);
  std::_Exit(2);
}

std::unique_ptr<Host> chosen_host() {
  const ErrnoKeeper keeper;
  const char* setting = std::getenv("ZARVO_HOST");
  const std::string_view choice = setting != nullptr ? setting : "";
  try {
    if (choice == "linux") return std::make_unique<LinuxHost>();
    return std::make_unique<SimulatedHost>(choice.empty() ? default_description()
                                                          : read_description(setting));
  } catch (const DescriptionError& error) {
    end_without_host(error.what());
  } catch (const std::bad_alloc&) {
    end_without_host("ZARVO_HOST: not enough memory");
  }
}

}  // namespace

Host& current_host() {
  std::unique_ptr<Host>& host = installed();
  if (host == nullptr) {
    host = chosen_host();
    generation.advance();
  }
  return *host;
}

std::unique_ptr<Host> install_host(std::unique_ptr<Host> host) {
  std::swap(installed(), host);
  generation.advance();
  return host;
}

Generation host_generation() { return generation; }

std::optional<DWORD> scripted_failure(Call call) {
  const std::optional<ScriptedFault> fault = current_host().next_fault(call->name);
  if (!fault) return std::nullopt;
  if (fault->raise) std::raise(SIGSEGV);
  return fault->code;
}

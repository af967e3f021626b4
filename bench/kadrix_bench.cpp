// The cost of the operations that an operator repeats, on an adapter that already holds 100, 1,000
// and 10,000 addresses.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "brenlo/src/system.h"
#include "platform/simulated/simulated_host.h"
#include "shared/include/vmk_errmsg.h"

namespace {

constexpr char NAME[] = "Ethernet";
// In the middle of the table, so that an insertion moves half of it.
constexpr char ADDED[] = "10.128.0.1";

/// The i-th address of the host: half of them below ADDED, half above.
AddressDescription described(DWORD i, DWORD count) {
  const DWORD network = i < count / 2 ? 10U : 11U;
  return {network | (i >> 16 & 0xFF) << 8 | (i >> 8 & 0xFF) << 16 | (i & 0xFF) << 24, 0xFF};
}

/// A host with `count` addresses on one adapter, whose waits return at once.
class LoadedHost {
 public:
  explicit LoadedHost(DWORD count, DWORD adapters = 1) {
    HostDescription description;
    description.sleep = false;
    for (DWORD a = 0; a < adapters; ++a) {
      AdapterDescription adapter;
      adapter.name = std::to_string(a);
      adapter.description = NAME;
      adapter.index = a + 2;
      for (DWORD i = a; i < count; i += adapters) adapter.addresses.push_back(described(i, count));
      description.adapters.push_back(adapter);
    }
    before_ = install_host(std::make_unique<SimulatedHost>(description));
    system_ = std::make_unique<System>();
  }
  ~LoadedHost() {
    system_.reset();
    install_host(std::move(before_));
  }
  LoadedHost(const LoadedHost&) = delete;
  LoadedHost& operator=(const LoadedHost&) = delete;

  System* operator->() { return system_.get(); }
  Adapter& adapter() { return *system_->adapter(0); }

 private:
  std::unique_ptr<Host> before_;
  std::unique_ptr<System> system_;
};

/// Sends standard error to nowhere while it lives.
class Silence {
 public:
  Silence() : kept_(dup(STDERR_FILENO)) {
    const int nowhere = open("/dev/null", O_WRONLY);
    dup2(nowhere, STDERR_FILENO);
    close(nowhere);
  }
  ~Silence() {
    dup2(kept_, STDERR_FILENO);
    close(kept_);
  }
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;

 private:
  int kept_;
};

DWORD size_of(const benchmark::State& state) { return static_cast<DWORD>(state.range(0)); }

void add_one(benchmark::State& state) {
  LoadedHost host(size_of(state));
  for (auto _ : state) {
    if (host.adapter().add_address(ADDED, "255.0.0.0") != 0) state.SkipWithError("not added");
    state.PauseTiming();
    host.adapter().delete_address(ADDED);
    state.ResumeTiming();
  }
}

void delete_one(benchmark::State& state) {
  LoadedHost host(size_of(state));
  for (auto _ : state) {
    state.PauseTiming();
    host.adapter().add_address(ADDED, "255.0.0.0");
    state.ResumeTiming();
    if (host.adapter().delete_address(ADDED) != 0) state.SkipWithError("not deleted");
  }
}

void look_up_one(benchmark::State& state) {
  LoadedHost host(size_of(state));
  for (auto _ : state) benchmark::DoNotOptimize(host->has_address(nullptr, ADDED));
}

void refresh_all(benchmark::State& state) {
  LoadedHost host(size_of(state));
  for (auto _ : state) host->refresh_adapters();
}

void print_line(benchmark::State& state) {
  LoadedHost host(size_of(state));
  const AddressSlot& slot = *host.adapter().address_slot(0);
  const Silence silence;
  for (auto _ : state) write_info("    [%d] - %s,%s", 0, slot.address_text(), slot.mask_text());
}

void print_report(benchmark::State& state) {
  LoadedHost host(size_of(state), MAX_ADAPTERS);
  const Silence silence;
  for (auto _ : state) host->print_report();
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->Arg(100)->Arg(1000)->Arg(10000);
}

BENCHMARK(add_one)->Apply(sizes);
BENCHMARK(delete_one)->Apply(sizes);
BENCHMARK(look_up_one)->Apply(sizes);
BENCHMARK(refresh_all)->Apply(sizes);
BENCHMARK(print_line)->Apply(sizes);
BENCHMARK(print_report)->Arg(10000)->Arg(20000)->Arg(40000)->Unit(benchmark::kMillisecond);

}  // namespace

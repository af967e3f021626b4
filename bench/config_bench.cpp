// Reading a block configuration, beside libconfig reading the same settings in its own notation.

#include <benchmark/benchmark.h>
#include <libconfig.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <string>

#include "shared/include/zarvoparser.h"

namespace {

using Stream = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

std::string name_of(int i) { return "Local Area Connection " + std::to_string(i); }

std::string address_of(int i) {
  char text[32];
  std::snprintf(text, sizeof text, "00-0C-29-%02X-%02X-%02X", i >> 16 & 0xFF, i >> 8 & 0xFF,
                i & 0xFF);
  return text;
}

std::string our_text(int blocks) {
  std::string text;
  for (int i = 0; i < blocks; ++i) {
    text.append("exclude = {\n    name = ").append(name_of(i)).append("\n    address = ");
    text.append(address_of(i)).append("\n    comment = left to its owner\n}\n");
  }
  return text;
}

std::string libconfig_text(int blocks) {
  std::string text = "exclude = (\n";
  for (int i = 0; i < blocks; ++i) {
    text.append("{\n    name = \"").append(name_of(i)).append("\";\n    address = \"");
    text.append(address_of(i)).append("\";\n    comment = \"left to its owner\";\n}");
    text.append(i + 1 < blocks ? ",\n" : "\n);\n");
  }
  return text;
}

Stream stream_of(std::string& text) {
  return {fmemopen(text.data(), text.size(), "r"), std::fclose};
}

/// The memory that the process has in use, in bytes.
double resident() {
  std::ifstream statm("/proc/self/statm");
  long total = 0;
  long pages = 0;
  statm >> total >> pages;
  return static_cast<double>(pages) * static_cast<double>(sysconf(_SC_PAGESIZE));
}

void finish(benchmark::State& state, const std::string& text, double memory) {
  state.SetBytesProcessed(static_cast<std::int64_t>(text.size()) *
                          static_cast<std::int64_t>(state.iterations()));
  state.counters["memory/text"] = memory / static_cast<double>(text.size());
}

void read_blocks(benchmark::State& state) {
  std::string text = our_text(static_cast<int>(state.range(0)));
  double memory = 0;
  for (auto _ : state) {
    const double before = resident();
    ConfigFile file;
    if (file.read(stream_of(text).get()) != 0) state.SkipWithError("not read");
    memory = std::max(memory, resident() - before);
  }
  finish(state, text, memory);
}

void read_with_libconfig(benchmark::State& state) {
  std::string text = libconfig_text(static_cast<int>(state.range(0)));
  double memory = 0;
  for (auto _ : state) {
    const double before = resident();
    config_t config;
    config_init(&config);
    if (config_read(&config, stream_of(text).get()) != CONFIG_TRUE) {
      state.SkipWithError("not read");
    }
    memory = std::max(memory, resident() - before);
    config_destroy(&config);
  }
  finish(state, text, memory);
}

// The largest first: later runs find memory that earlier ones left.
BENCHMARK(read_blocks)->Arg(1000000)->Arg(100000)->Arg(10000)->Unit(benchmark::kMillisecond);
BENCHMARK(read_with_libconfig)->Arg(100000)->Arg(10000)->Unit(benchmark::kMillisecond);

}  // namespace

// Object identifiers beside the plain standard-library way: from_chars and to_chars over a vector.

#include <benchmark/benchmark.h>

#include <charconv>
#include <string>
#include <vector>

#include "shared/include/oid.h"

namespace {

const std::string TEXT = "1.3.6.1.4.1.9999.2.1.2.3.100.65536.4294967295.10.1.1.5";

using Ids = std::vector<std::uint32_t>;

Ids parse_plain(const std::string& text) {
  Ids ids;
  const char* at = text.data();
  const char* const end = at + text.size();
  while (at < end) {
    std::uint32_t id = 0;
    at = std::from_chars(at, end, id).ptr;
    ids.push_back(id);
    if (at < end) ++at;
  }
  return ids;
}

void parse_oid(benchmark::State& state) {
  for (auto _ : state) {
    Oid oid;
    oid.parse(TEXT.c_str());
    benchmark::DoNotOptimize(oid.at(17));
  }
}

void parse_vector(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(parse_plain(TEXT));
}

void print_oid(benchmark::State& state) {
  Oid oid;
  oid.parse(TEXT.c_str());
  for (auto _ : state) benchmark::DoNotOptimize(oid.to_text());
}

void print_vector(benchmark::State& state) {
  const Ids ids = parse_plain(TEXT);
  for (auto _ : state) {
    std::string text;
    char digits[16];
    for (const std::uint32_t id : ids) {
      if (!text.empty()) text += '.';
      text.append(digits, std::to_chars(digits, digits + sizeof digits, id).ptr);
    }
    benchmark::DoNotOptimize(text);
  }
}

void compare_oid(benchmark::State& state) {
  Oid a;
  a.parse(TEXT.c_str());
  Oid b(a);
  b.append_id(1);
  for (auto _ : state) {
    benchmark::DoNotOptimize(&a);
    benchmark::DoNotOptimize(a.compare(b, 0));
  }
}

void compare_vector(benchmark::State& state) {
  const Ids a = parse_plain(TEXT);
  Ids b = a;
  b.push_back(1);
  for (auto _ : state) {
    benchmark::DoNotOptimize(&a);
    benchmark::DoNotOptimize(a < b);
  }
}

BENCHMARK(parse_oid);
BENCHMARK(parse_vector);
BENCHMARK(print_oid);
BENCHMARK(print_vector);
BENCHMARK(compare_oid);
BENCHMARK(compare_vector);

}  // namespace

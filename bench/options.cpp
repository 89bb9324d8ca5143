// Options by name against std::unordered_map<std::string, double>, and the
// library's real-number reader against strtod.
//
// The option benchmarks cycle through the numeric standard options without
// a verify function or with the non-negative check (the common case), so
// each set runs the full commit: lookup ignoring case, a fresh copy of the
// value, the verify function, freeing the old value and calling the
// option-change callbacks (none attached). The reference map holds the same
// names and is assigned and read with operator[] / find.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>
#include <unordered_map>
#include <vector>

#include "vqutil/option.h"
#include "vqutil/strutil.h"

namespace {

const std::vector<std::string> &Names() {
  static const std::vector<std::string> names = {
      "frame_interval",          "playback_check_count",    "server_auto_flush_size", "server_delivery_timeout",
      "server_keep_alive_timeout", "server_read_timeout",   "server_start_delay",     "server_start_timeout",
      "server_write_timeout",    "socket_connect_timeout",  "udp_broadcast_timeout",  "ptm_resolve_timeout",
      "_conn_init_timeout",      "_socket_buffer_size",     "_socket_linger_time",    "_conn_read_size_init"};
  return names;
}

void BM_OptionSetByName(benchmark::State &state) {
  const auto &names = Names();
  size_t i = 0;
  double v = 1.0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(DutOptionSetNumValue(names[i].c_str(), v));
    if (++i == names.size()) i = 0;
    v += 1.0;
  }
}
BENCHMARK(BM_OptionSetByName);

void BM_OptionGetByName(benchmark::State &state) {
  const auto &names = Names();
  size_t i = 0;
  double sum = 0.0;
  for (auto _ : state) {
    sum += DutOptionGetNumValue(names[i].c_str());
    if (++i == names.size()) i = 0;
  }
  benchmark::DoNotOptimize(sum);
}
BENCHMARK(BM_OptionGetByName);

// The typed path of a caller that kept the option: no name lookup.
void BM_OptionSetNumHeld(benchmark::State &state) {
  D_OPTION *option = DutOptionLookup("server_read_timeout");
  double v = 1.0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(DutOptionSetNum(option, v));
    v += 1.0;
  }
}
BENCHMARK(BM_OptionSetNumHeld);

std::unordered_map<std::string, double> &Map() {
  static std::unordered_map<std::string, double> map = [] {
    std::unordered_map<std::string, double> m;
    for (const auto &n : Names()) m[n] = 0.0;
    return m;
  }();
  return map;
}

void BM_MapSetByName(benchmark::State &state) {
  const auto &names = Names();
  auto &map = Map();
  size_t i = 0;
  double v = 1.0;
  for (auto _ : state) {
    map[names[i]] = v;
    benchmark::ClobberMemory();
    if (++i == names.size()) i = 0;
    v += 1.0;
  }
}
BENCHMARK(BM_MapSetByName);

void BM_MapGetByName(benchmark::State &state) {
  const auto &names = Names();
  auto &map = Map();
  size_t i = 0;
  double sum = 0.0;
  for (auto _ : state) {
    auto it = map.find(names[i]);
    sum += it != map.end() ? it->second : 0.0;
    if (++i == names.size()) i = 0;
  }
  benchmark::DoNotOptimize(sum);
}
BENCHMARK(BM_MapGetByName);

const std::vector<std::string> &Numbers() {
  static const std::vector<std::string> numbers = {"0",    "1",       "-1",   "42",     "3.14159", "-2.5e-3",
                                                   "1e10", "8192",    "60.0", "-32768", "0.001",   "123456.789",
                                                   "7",    "-0.0625", "2e-8", "900"};
  return numbers;
}

void BM_StringToSignedReal(benchmark::State &state) {
  const auto &numbers = Numbers();
  size_t i = 0;
  double sum = 0.0;
  for (auto _ : state) {
    sum += DutStringToSignedReal(numbers[i].c_str());
    if (++i == numbers.size()) i = 0;
  }
  benchmark::DoNotOptimize(sum);
}
BENCHMARK(BM_StringToSignedReal);

void BM_Strtod(benchmark::State &state) {
  const auto &numbers = Numbers();
  size_t i = 0;
  double sum = 0.0;
  for (auto _ : state) {
    sum += std::strtod(numbers[i].c_str(), nullptr);
    if (++i == numbers.size()) i = 0;
  }
  benchmark::DoNotOptimize(sum);
}
BENCHMARK(BM_Strtod);

}  // namespace

BENCHMARK_MAIN();

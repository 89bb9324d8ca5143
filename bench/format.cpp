// Conversion rate of the real-format families over 10^6 values, against
// two references measured in the same run: the frexp-based reference
// encoders of the tests (what a straightforward arithmetic version costs)
// and memcpy of the same array (the memory-bound limit).
//
// Every library conversion works in place on a fresh copy of the input;
// the copy is made with the timer paused. Inputs stay in the exact range
// of each conversion, so no warning is printed.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "../tests/format/format_oracle.hpp"
#include "vqutil/format.h"

namespace {

constexpr std::size_t kCount = 1000000;
constexpr D_INT4 kHost = std::endian::native == std::endian::little ? D_INT_LITTLE_ENDIAN : D_INT_BIG_ENDIAN;

using Convert = D_BOOL (*)(void *, D_INT4, D_INT4);

// Normal values 1.f x 2^k for k in [lo, hi].
template <typename T>
std::vector<T> values(int lo, int hi) {
  std::mt19937_64 rng(0xBE7C4u);
  std::uniform_real_distribution<T> fraction(T(1), T(2));
  std::uniform_int_distribution<int> exponent(lo, hi);
  std::vector<T> out(kCount);
  for (auto &v : out) v = std::ldexp(fraction(rng), exponent(rng)) * (rng() % 2 ? T(-1) : T(1));
  return out;
}

// The input in a foreign format, produced by the conversion under test.
template <typename T>
std::vector<T> foreign(const std::vector<T> &ieee, Convert to, D_INT4 out_format) {
  std::vector<T> out = ieee;
  for (auto &v : out) to(&v, kHost, out_format);
  return out;
}

// The conversion is a template argument so that the loop calls it
// directly, as a host's own loop would.
template <Convert fn, typename T>
void runLibrary(benchmark::State &state, const std::vector<T> &input, D_INT4 in, D_INT4 out) {
  std::vector<T> work(input.size());
  for (auto _ : state) {
    state.PauseTiming();
    std::memcpy(work.data(), input.data(), input.size() * sizeof(T));
    state.ResumeTiming();
    for (auto &v : work) fn(&v, in, out);
    benchmark::DoNotOptimize(work.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(input.size()));
}

template <typename T, typename Encode>
void runOracle(benchmark::State &state, const std::vector<T> &input, Encode encode) {
  std::vector<T> work(input.size());
  for (auto _ : state) {
    for (std::size_t i = 0; i < input.size(); ++i) {
      const auto bytes = encode(input[i]);
      std::memcpy(&work[i], bytes.data(), sizeof(T));
    }
    benchmark::DoNotOptimize(work.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(input.size()));
}

// On a shared machine the fastest repetition is the steadiest figure; the
// array comparisons report it next to the median.
double fastest(const std::vector<double> &v) { return *std::min_element(v.begin(), v.end()); }

template <typename T>
void runMemcpy(benchmark::State &state) {
  const std::vector<T> input = values<T>(-10, 10);
  std::vector<T> work(input.size());
  for (auto _ : state) {
    std::memcpy(work.data(), input.data(), input.size() * sizeof(T));
    benchmark::DoNotOptimize(work.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(input.size()));
}

template <typename T>
std::array<unsigned char, sizeof(T)> ieeeArray(T v) {
  std::array<unsigned char, sizeof(T)> out{};
  std::memcpy(out.data(), &v, sizeof v);
  return out;
}

// The reference model works on logical words: these read and write them.
using vqoracle::Fmt;

// Big-endian bytes of the word, with VAX's 16-bit pairs swapped.
template <Fmt F>
std::array<unsigned char, 8> encodeRef(double v) {
  std::uint64_t word = vqoracle::encode(F, v).value_or(0);
  std::array<unsigned char, 8> out{};
  for (auto i = static_cast<std::size_t>(vqoracle::layoutOf(F).size); i-- > 0; word /= 256)
    out[vqoracle::isDec(F) ? i ^ 1 : i] = static_cast<unsigned char>(word % 256);
  return out;
}
template <Fmt F>
long double decodeRef(const unsigned char *bytes) {
  const auto size = static_cast<std::size_t>(vqoracle::layoutOf(F).size);
  std::uint64_t word = 0;
  for (std::size_t i = 0; i < size; ++i) word = word * 256 + bytes[vqoracle::isDec(F) ? i ^ 1 : i];
  return vqoracle::decode(F, word).value_or(0);
}

// ---- References ------------------------------------------------------------

void BM_Memcpy4(benchmark::State &state) { runMemcpy<float>(state); }
void BM_Memcpy8(benchmark::State &state) { runMemcpy<double>(state); }

// ---- IBM single -------------------------------------------------------------

const std::vector<float> &floatsIbm() {
  static const std::vector<float> v = values<float>(-120, 120);
  return v;
}

void BM_IeeeToIbm4_Library(benchmark::State &state) {
  runLibrary<DutSwapReal4IeeeToIbm370>(state, floatsIbm(), kHost, D_INT_BIG_ENDIAN);
}
void BM_IeeeToIbm4_Oracle(benchmark::State &state) {
  runOracle(state, floatsIbm(), [](float v) { return encodeRef<Fmt::Ibm4>(v); });
}
void BM_Ibm4ToIeee_Library(benchmark::State &state) {
  static const auto in = foreign(floatsIbm(), DutSwapReal4IeeeToIbm370, D_INT_BIG_ENDIAN);
  runLibrary<DutSwapReal4Ibm370ToIeee>(state, in, D_INT_BIG_ENDIAN, kHost);
}
void BM_Ibm4ToIeee_Oracle(benchmark::State &state) {
  static const auto in = foreign(floatsIbm(), DutSwapReal4IeeeToIbm370, D_INT_BIG_ENDIAN);
  runOracle(state, in, [](float v) {
    const auto bytes = ieeeArray(v);
    return ieeeArray(static_cast<float>(decodeRef<Fmt::Ibm4>(bytes.data())));
  });
}

// ---- IBM double -------------------------------------------------------------

const std::vector<double> &doublesWide() {
  static const std::vector<double> v = values<double>(-250, 250);
  return v;
}

void BM_IeeeToIbm8_Library(benchmark::State &state) {
  runLibrary<DutSwapReal8IeeeToIbm370>(state, doublesWide(), kHost, D_INT_BIG_ENDIAN);
}
void BM_IeeeToIbm8_Oracle(benchmark::State &state) {
  runOracle(state, doublesWide(), [](double v) { return encodeRef<Fmt::Ibm8>(v); });
}
void BM_Ibm8ToIeee_Library(benchmark::State &state) {
  static const auto in = foreign(doublesWide(), DutSwapReal8IeeeToIbm370, D_INT_BIG_ENDIAN);
  runLibrary<DutSwapReal8Ibm370ToIeee>(state, in, D_INT_BIG_ENDIAN, kHost);
}
void BM_Ibm8ToIeee_Oracle(benchmark::State &state) {
  static const auto in = foreign(doublesWide(), DutSwapReal8IeeeToIbm370, D_INT_BIG_ENDIAN);
  runOracle(state, in, [](double v) {
    const auto bytes = ieeeArray(v);
    return ieeeArray(static_cast<double>(vqoracle::truncateSignificand(decodeRef<Fmt::Ibm8>(bytes.data()), 53)));
  });
}

// ---- DEC F ------------------------------------------------------------------

void BM_IeeeToDecF_Library(benchmark::State &state) {
  runLibrary<DutSwapReal4IeeeToDecF>(state, floatsIbm(), kHost, D_INT_LITTLE_ENDIAN);
}
void BM_IeeeToDecF_Oracle(benchmark::State &state) {
  runOracle(state, floatsIbm(), [](float v) { return encodeRef<Fmt::DecF>(v); });
}
void BM_DecFToIeee_Library(benchmark::State &state) {
  static const auto in = foreign(floatsIbm(), DutSwapReal4IeeeToDecF, D_INT_LITTLE_ENDIAN);
  runLibrary<DutSwapReal4DecFToIeee>(state, in, D_INT_LITTLE_ENDIAN, kHost);
}
void BM_DecFToIeee_Oracle(benchmark::State &state) {
  static const auto in = foreign(floatsIbm(), DutSwapReal4IeeeToDecF, D_INT_LITTLE_ENDIAN);
  runOracle(state, in, [](float v) {
    const auto bytes = ieeeArray(v);
    return ieeeArray(static_cast<float>(decodeRef<Fmt::DecF>(bytes.data())));
  });
}

// ---- DEC D ------------------------------------------------------------------

const std::vector<double> &doublesNarrow() {
  static const std::vector<double> v = values<double>(-120, 120);
  return v;
}

void BM_IeeeToDecD_Library(benchmark::State &state) {
  runLibrary<DutSwapReal8IeeeToDecD>(state, doublesNarrow(), kHost, D_INT_LITTLE_ENDIAN);
}
void BM_IeeeToDecD_Oracle(benchmark::State &state) {
  runOracle(state, doublesNarrow(), [](double v) { return encodeRef<Fmt::DecD>(v); });
}
void BM_DecDToIeee_Library(benchmark::State &state) {
  static const auto in = foreign(doublesNarrow(), DutSwapReal8IeeeToDecD, D_INT_LITTLE_ENDIAN);
  runLibrary<DutSwapReal8DecDToIeee>(state, in, D_INT_LITTLE_ENDIAN, kHost);
}
void BM_DecDToIeee_Oracle(benchmark::State &state) {
  static const auto in = foreign(doublesNarrow(), DutSwapReal8IeeeToDecD, D_INT_LITTLE_ENDIAN);
  runOracle(state, in, [](double v) {
    const auto bytes = ieeeArray(v);
    return ieeeArray(static_cast<double>(vqoracle::truncateSignificand(decodeRef<Fmt::DecD>(bytes.data()), 53)));
  });
}

// ---- DEC G ------------------------------------------------------------------

void BM_IeeeToDecG_Library(benchmark::State &state) {
  runLibrary<DutSwapReal8IeeeToDecG>(state, doublesWide(), kHost, D_INT_LITTLE_ENDIAN);
}
void BM_IeeeToDecG_Oracle(benchmark::State &state) {
  runOracle(state, doublesWide(), [](double v) { return encodeRef<Fmt::DecG>(v); });
}
void BM_DecGToIeee_Library(benchmark::State &state) {
  static const auto in = foreign(doublesWide(), DutSwapReal8IeeeToDecG, D_INT_LITTLE_ENDIAN);
  runLibrary<DutSwapReal8DecGToIeee>(state, in, D_INT_LITTLE_ENDIAN, kHost);
}
void BM_DecGToIeee_Oracle(benchmark::State &state) {
  static const auto in = foreign(doublesWide(), DutSwapReal8IeeeToDecG, D_INT_LITTLE_ENDIAN);
  runOracle(state, in, [](double v) {
    const auto bytes = ieeeArray(v);
    return ieeeArray(static_cast<double>(decodeRef<Fmt::DecG>(bytes.data())));
  });
}

// ---- Array forms ------------------------------------------------------------

// Every conversion over the same 10^6 values three ways in one run: one
// call per value, one array call, and memcpy of the same bytes (above).
using ConvertArray = D_BOOL (*)(void *, D_UINT4, D_INT4, D_INT4);

template <typename T>
void runArray(benchmark::State &state, const std::vector<T> &input, ConvertArray fn, D_INT4 in, D_INT4 out) {
  std::vector<T> work(input.size());
  for (auto _ : state) {
    state.PauseTiming();
    std::memcpy(work.data(), input.data(), input.size() * sizeof(T));
    state.ResumeTiming();
    fn(work.data(), static_cast<D_UINT4>(work.size()), in, out);
    benchmark::DoNotOptimize(work.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(input.size()));
}

template <typename T>
void runPerValue(benchmark::State &state, const std::vector<T> &input, Convert fn, D_INT4 in, D_INT4 out) {
  std::vector<T> work(input.size());
  for (auto _ : state) {
    state.PauseTiming();
    std::memcpy(work.data(), input.data(), input.size() * sizeof(T));
    state.ResumeTiming();
    for (auto &v : work) fn(&v, in, out);
    benchmark::DoNotOptimize(work.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(input.size()));
}

struct Member {
  const char *name;
  Convert one;
  ConvertArray many;
  int size;
  Convert make;  // IEEE in host order -> the input format (null: IEEE)
  D_INT4 in;
  D_INT4 out;
};

#define VQ_MEMBER(name, size, make, in, out) {#name, DutSwap##name, DutSwap##name##Array, size, make, in, out}
const Member kMembers[] = {
    VQ_MEMBER(Real4IeeeToDecF, 4, nullptr, kHost, D_INT_LITTLE_ENDIAN),
    VQ_MEMBER(Real4DecFToIeee, 4, DutSwapReal4IeeeToDecF, D_INT_LITTLE_ENDIAN, kHost),
    VQ_MEMBER(Real4IeeeToIbm370, 4, nullptr, kHost, D_INT_BIG_ENDIAN),
    VQ_MEMBER(Real4Ibm370ToIeee, 4, DutSwapReal4IeeeToIbm370, D_INT_BIG_ENDIAN, kHost),
    VQ_MEMBER(Real4DecFToIbm370, 4, DutSwapReal4IeeeToDecF, D_INT_LITTLE_ENDIAN, D_INT_BIG_ENDIAN),
    VQ_MEMBER(Real4Ibm370ToDecF, 4, DutSwapReal4IeeeToIbm370, D_INT_BIG_ENDIAN, D_INT_LITTLE_ENDIAN),
    VQ_MEMBER(Real8IeeeToDecD, 8, nullptr, kHost, D_INT_LITTLE_ENDIAN),
    VQ_MEMBER(Real8IeeeToDecG, 8, nullptr, kHost, D_INT_LITTLE_ENDIAN),
    VQ_MEMBER(Real8DecDToIeee, 8, DutSwapReal8IeeeToDecD, D_INT_LITTLE_ENDIAN, kHost),
    VQ_MEMBER(Real8DecGToIeee, 8, DutSwapReal8IeeeToDecG, D_INT_LITTLE_ENDIAN, kHost),
    VQ_MEMBER(Real8DecDToDecG, 8, DutSwapReal8IeeeToDecD, D_INT_LITTLE_ENDIAN, D_INT_LITTLE_ENDIAN),
    VQ_MEMBER(Real8DecGToDecD, 8, DutSwapReal8IeeeToDecG, D_INT_LITTLE_ENDIAN, D_INT_LITTLE_ENDIAN),
    VQ_MEMBER(Real8IeeeToIbm370, 8, nullptr, kHost, D_INT_BIG_ENDIAN),
    VQ_MEMBER(Real8Ibm370ToIeee, 8, DutSwapReal8IeeeToIbm370, D_INT_BIG_ENDIAN, kHost),
    VQ_MEMBER(Real8DecDToIbm370, 8, DutSwapReal8IeeeToDecD, D_INT_LITTLE_ENDIAN, D_INT_BIG_ENDIAN),
    VQ_MEMBER(Real8DecGToIbm370, 8, DutSwapReal8IeeeToDecG, D_INT_LITTLE_ENDIAN, D_INT_BIG_ENDIAN),
    VQ_MEMBER(Real8Ibm370ToDecD, 8, DutSwapReal8IeeeToIbm370, D_INT_BIG_ENDIAN, D_INT_LITTLE_ENDIAN),
    VQ_MEMBER(Real8Ibm370ToDecG, 8, DutSwapReal8IeeeToIbm370, D_INT_BIG_ENDIAN, D_INT_LITTLE_ENDIAN),
};
#undef VQ_MEMBER

// Inputs inside every conversion's exact range (|x| within 2^+-120), so
// that nothing warns.
template <typename T>
std::vector<T> inputOf(const Member &m) {
  const std::vector<T> ieee = values<T>(-120, 120);
  return m.make == nullptr ? ieee : foreign(ieee, m.make, m.in);
}

// Each member's input is made on its first run and shared by its two forms.
template <typename T>
void registerMember(const Member &m) {
  const std::string name = m.name;
  auto input = std::make_shared<std::vector<T>>();
  auto get = [m, input]() -> const std::vector<T> & {
    if (input->empty()) *input = inputOf<T>(m);
    return *input;
  };
  benchmark::RegisterBenchmark((name + "/PerValue").c_str(), [m, get](benchmark::State &state) {
    runPerValue(state, get(), m.one, m.in, m.out);
  })->Unit(benchmark::kMicrosecond);
  benchmark::RegisterBenchmark((name + "/Array").c_str(), [m, get](benchmark::State &state) {
    runArray(state, get(), m.many, m.in, m.out);
  })->Unit(benchmark::kMicrosecond)->ComputeStatistics("min", fastest);
}

const bool kRegistered = [] {
  for (const Member &m : kMembers) {
    if (m.size == 4) registerMember<float>(m);
    else registerMember<double>(m);
  }
  return true;
}();

}  // namespace

BENCHMARK(BM_Memcpy4)->Unit(benchmark::kMicrosecond)->ComputeStatistics("min", fastest);
BENCHMARK(BM_Memcpy8)->Unit(benchmark::kMicrosecond)->ComputeStatistics("min", fastest);
BENCHMARK(BM_IeeeToIbm4_Library)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_IeeeToIbm4_Oracle)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Ibm4ToIeee_Library)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Ibm4ToIeee_Oracle)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_IeeeToIbm8_Library)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_IeeeToIbm8_Oracle)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Ibm8ToIeee_Library)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Ibm8ToIeee_Oracle)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_IeeeToDecF_Library)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_IeeeToDecF_Oracle)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_DecFToIeee_Library)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_DecFToIeee_Oracle)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_IeeeToDecD_Library)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_IeeeToDecD_Oracle)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_DecDToIeee_Library)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_DecDToIeee_Oracle)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_IeeeToDecG_Library)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_IeeeToDecG_Oracle)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_DecGToIeee_Library)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_DecGToIeee_Oracle)->Unit(benchmark::kMicrosecond);

BENCHMARK_MAIN();

// Building text from many short pieces: safe strings (default quantum and a
// larger one) against std::string and, when GLib is present, GString, all
// in the same run. Each iteration builds one string of 10^6 pieces from
// empty and frees it, so the growth policy is what is measured.
#include <benchmark/benchmark.h>

#include <array>
#include <string>

#include "vqutil/safestr.h"

#ifdef VQ_HAVE_GLIB
#include <glib.h>
#endif

namespace {

constexpr int kPieces = 1000000;

// Short pieces of varying length (3 to 10 characters).
const std::array<const char *, 8> kTexts = {"abc",     "defg",    "hijkl",    "mnopqr",
                                            "stuvwxy", "z012345", "6789abcd", "efghijklmn"};

void BM_SafeStringAppend(benchmark::State &state) {
  const auto quantum = static_cast<D_INT4>(state.range(0));
  for (auto _ : state) {
    D_SAFE_STRING s = DutSafeStringCreate();
    for (int i = 0; i < kPieces; ++i) {
      DutSafeStringQAppend(&s, kTexts[static_cast<std::size_t>(i) & 7U], quantum);
    }
    benchmark::DoNotOptimize(s.str);
    DutSafeStringDestroy(s);
  }
  state.SetItemsProcessed(state.iterations() * kPieces);
}
BENCHMARK(BM_SafeStringAppend)->Arg(256)->Arg(4096)->Unit(benchmark::kMillisecond);

void BM_StdStringAppend(benchmark::State &state) {
  for (auto _ : state) {
    std::string s;
    for (int i = 0; i < kPieces; ++i) {
      s += kTexts[static_cast<std::size_t>(i) & 7U];
    }
    benchmark::DoNotOptimize(s.data());
  }
  state.SetItemsProcessed(state.iterations() * kPieces);
}
BENCHMARK(BM_StdStringAppend)->Unit(benchmark::kMillisecond);

// Lower bound: the final size reserved up front, so no growth at all.
void BM_StdStringAppendReserved(benchmark::State &state) {
  for (auto _ : state) {
    std::string s;
    s.reserve(static_cast<std::size_t>(kPieces) * 10);
    for (int i = 0; i < kPieces; ++i) {
      s += kTexts[static_cast<std::size_t>(i) & 7U];
    }
    benchmark::DoNotOptimize(s.data());
  }
  state.SetItemsProcessed(state.iterations() * kPieces);
}
BENCHMARK(BM_StdStringAppendReserved)->Unit(benchmark::kMillisecond);

void BM_SafeStringAppendChar(benchmark::State &state) {
  for (auto _ : state) {
    D_SAFE_STRING s = DutSafeStringCreate();
    for (int i = 0; i < kPieces; ++i) {
      DutSafeStringAppendChar(&s, static_cast<char>('a' + (i % 26)));
    }
    benchmark::DoNotOptimize(s.str);
    DutSafeStringDestroy(s);
  }
  state.SetItemsProcessed(state.iterations() * kPieces);
}
BENCHMARK(BM_SafeStringAppendChar)->Unit(benchmark::kMillisecond);

void BM_StdStringPushBack(benchmark::State &state) {
  for (auto _ : state) {
    std::string s;
    for (int i = 0; i < kPieces; ++i) {
      s.push_back(static_cast<char>('a' + (i % 26)));
    }
    benchmark::DoNotOptimize(s.data());
  }
  state.SetItemsProcessed(state.iterations() * kPieces);
}
BENCHMARK(BM_StdStringPushBack)->Unit(benchmark::kMillisecond);

#ifdef VQ_HAVE_GLIB
void BM_GStringAppend(benchmark::State &state) {
  for (auto _ : state) {
    GString *s = g_string_new(nullptr);
    for (int i = 0; i < kPieces; ++i) {
      g_string_append(s, kTexts[static_cast<std::size_t>(i) & 7U]);
    }
    benchmark::DoNotOptimize(s->str);
    g_string_free(s, TRUE);
  }
  state.SetItemsProcessed(state.iterations() * kPieces);
}
BENCHMARK(BM_GStringAppend)->Unit(benchmark::kMillisecond);

void BM_GStringAppendChar(benchmark::State &state) {
  for (auto _ : state) {
    GString *s = g_string_new(nullptr);
    for (int i = 0; i < kPieces; ++i) {
      g_string_append_c(s, static_cast<gchar>('a' + (i % 26)));
    }
    benchmark::DoNotOptimize(s->str);
    g_string_free(s, TRUE);
  }
  state.SetItemsProcessed(state.iterations() * kPieces);
}
BENCHMARK(BM_GStringAppendChar)->Unit(benchmark::kMillisecond);
#endif

}  // namespace
BENCHMARK_MAIN();

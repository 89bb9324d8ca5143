// Time texts: DutTimeNumToStr through the "full" converter against the
// same text built with localtime_r + strftime + snprintf in the same run,
// and the "full" reader against strptime + mktime. The printing pairs run
// over three walks of time: through a year in steps of 7919.25 s (every
// field changes from call to call, about eleven calls a day), as a log
// does (four calls a second), and over scattered days (a new day at every
// call). The readers use the first walk.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "vqutil/time.h"

namespace {

constexpr double kStart = 978307200.0;  // 2001-01-01 UTC
constexpr int kTimes = 4096;

// The walks, by benchmark argument: 0 through a year, 1 a log, 2 a new day
// at every call (three days and a bit apart).
constexpr double kSteps[] = {7919.25, 0.25, 3 * 86400.0 + 7919.25};

std::vector<double> Times(int walk = 0) {
  std::vector<double> out(kTimes);
  for (int i = 0; i < kTimes; ++i) out[i] = kStart + kSteps[walk] * i;
  return out;
}

void Walks(benchmark::internal::Benchmark *b) {
  b->ArgName("walk");
  for (int walk = 0; walk < 3; ++walk) b->Arg(walk);
}

void UseFull() {
  D_TIME_CVT *full = DutTimeCvtLookup("full");
  if (full != nullptr) DutTimeCvtSetCurrent(full);
}

void BM_TimeNumToStrFull(benchmark::State &state) {
  UseFull();
  std::vector<double> times = Times(static_cast<int>(state.range(0)));
  std::size_t i = 0;
  for (auto _ : state) {
    const char *text = DutTimeNumToStr(times[i++ % kTimes]);
    benchmark::DoNotOptimize(text);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_TimeNumToStrFull)->Apply(Walks);

// The reference: the same "Www Mmm dd hh:mm:ss.fff yyyy" text.
void BM_StrftimeReference(benchmark::State &state) {
  std::vector<double> times = Times(static_cast<int>(state.range(0)));
  char buffer[64];
  std::size_t i = 0;
  for (auto _ : state) {
    double t = times[i++ % kTimes];
    std::time_t whole = static_cast<std::time_t>(t);
    std::tm tm;
    localtime_r(&whole, &tm);
    std::size_t n = std::strftime(buffer, sizeof buffer, "%a %b %e %H:%M:%S", &tm);
    char fraction[16];
    std::snprintf(fraction, sizeof fraction, "%.3f", t - std::trunc(t));
    std::snprintf(buffer + n, sizeof buffer - n, "%s %d", fraction + 1, tm.tm_year + 1900);
    benchmark::DoNotOptimize(buffer);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_StrftimeReference)->Apply(Walks);

std::vector<std::string> FullTexts() {
  UseFull();
  std::vector<double> times = Times();
  std::vector<std::string> texts;
  texts.reserve(kTimes);
  for (double t : times) texts.emplace_back(DutTimeNumToStr(t) + 4);  // without the weekday
  return texts;
}

void BM_TimeStrToNumFull(benchmark::State &state) {
  std::vector<std::string> texts = FullTexts();
  std::size_t i = 0;
  double value = 0;
  for (auto _ : state) {
    D_BOOL ok = DutTimeStrToNum(texts[i++ % kTimes].c_str(), &value);
    benchmark::DoNotOptimize(ok);
    benchmark::DoNotOptimize(value);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_TimeStrToNumFull);

// The reference reader: strptime of the same text, then mktime.
void BM_StrptimeReference(benchmark::State &state) {
  std::vector<std::string> texts = FullTexts();
  std::size_t i = 0;
  for (auto _ : state) {
    std::tm tm{};
    const char *rest = strptime(texts[i++ % kTimes].c_str(), "%b %d %H:%M:%S", &tm);
    double fraction = 0;
    int year = 0;
    if (rest != nullptr && std::sscanf(rest, "%lf %d", &fraction, &year) == 2) tm.tm_year = year - 1900;
    tm.tm_isdst = -1;
    double value = static_cast<double>(std::mktime(&tm)) + fraction;
    benchmark::DoNotOptimize(value);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_StrptimeReference);

}  // namespace

BENCHMARK_MAIN();

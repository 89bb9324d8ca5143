// Several library threads using the process-wide registries at once:
// quarks, lobes, callback types, time converters, options, printing and
// the per-thread error numbers. Run under ThreadSanitizer these must be
// silent; without it they still check that no update was lost and that
// every thread saw consistent answers.

#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <map>
#include <set>
#include <string>

#include "rwmutex/rw_support.hpp"
#include "support/output_capture.hpp"
#include "vqutil/callback.h"
#include "vqutil/lobe.h"
#include "vqutil/memory.h"
#include "vqutil/option.h"
#include "vqutil/output.h"
#include "vqutil/quark.h"
#include "vqutil/time.h"

namespace {

constexpr int kThreads = 8;

// Runs body(index) on kThreads library threads released together, and
// expects every one to answer 0 (no inconsistency seen).
void together(const std::function<D_WORD(int)> &body) {
  EXPECT_EQ(std::vector<D_WORD>(kThreads, 0), rwtest::Threads(kThreads, body, true).join());
}

// A name of this process, upper-cased for odd threads: names ignore case.
std::string name(const std::string &stem, int thread, int k) {
  std::string text = stem + "_" + std::to_string(getpid()) + "_" + std::to_string(k);
  if (thread % 2) for (char &c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return text;
}

// Quarks, lobes, callback types and time converters are made once whoever
// comes first and however the name is spelt; each thread's own strings get
// quarks no other string has, and values on a lobe of its own are its
// alone. Reading the clocks races nothing.
TEST(LibraryThreads, RegistriesAgreeOnWhatWasMadeOnce) {
  constexpr int kKeys = 24;
  const D_UINT4 base = 0x7A000000u + static_cast<D_UINT4>(getpid() % 4096) * 64u;
  // Callback types stay for the life of the process: a repeated run makes new ones.
  static int run = 0;
  const std::string cb_stem = "cbtype" + std::to_string(run);
  const D_INT4 type_base = 500000 + (getpid() % 1000) * 100 + run++ * kKeys;
  struct Seen {
    std::vector<D_QUARK> shared = std::vector<D_QUARK>(kKeys), own = std::vector<D_QUARK>(kKeys);
    std::vector<D_LOBE *> lobes = std::vector<D_LOBE *>(kKeys);
    std::vector<void *> types = std::vector<void *>(kKeys), cvts = std::vector<void *>(kKeys);
  };
  std::vector<Seen> seen(kThreads);
  auto to_str = [](D_REAL8, const char **str) { return *str = "t", D_TRUE; };
  auto to_num = [](const char *, D_REAL8 *time) { return *time = 1.0, D_TRUE; };
  together([&](int i) {
    D_WORD bad = 0;
    Seen &s = seen[i];
    for (int k = 0; k < kKeys; ++k) {
      std::string own = name("own" + std::to_string(i), 0, k);
      const char *back = nullptr;
      bad += !DutStrToQuark(name("shared", i, k).c_str(), &s.shared[k]) || !DutStrToQuark(own.c_str(), &s.own[k]);
      bad += !DutQuarkToStr(s.own[k], &back) || own != back;
      s.lobes[k] = DutLobeDeclare(base + static_cast<D_UINT4>(k), 8);
      bad += s.lobes[k] == nullptr || DutLobeLookup(base + static_cast<D_UINT4>(k)) != s.lobes[k];
      s.types[k] = DutCbTypeCreate(type_base + k, name(cb_stem, 0, k).c_str());
      D_CB_TYPE *by_num = DutCbTypeNumLookup(type_base + k);
      bad += by_num == nullptr || DutCbTypeLookup(name(cb_stem, i, k).c_str()) != by_num;
      s.cvts[k] = DutTimeCvtCreate(name("tsan_cvt", 0, k).c_str(), to_str, to_num, nullptr);
      bad += DutTimeCvtLookup(name("tsan_cvt", 0, k).c_str()) == nullptr || DutGetWallTime() <= 0.0;
      DutGetCurrentTime();
    }
    D_LOBE *mine = DutLobeDeclare(base + kKeys + static_cast<D_UINT4>(i), sizeof(D_INT4));
    D_INT4 objects[16], value = 0;
    for (D_INT4 o = 0; o < 16; ++o) bad += !DutLobeSet(&objects[o], mine, &(value = i * 100 + o));
    for (D_INT4 o = 0; o < 16; ++o) {
      bad += !DutLobeGet(&objects[o], mine, &value) || value != i * 100 + o;
      DutLobeDelete(&objects[o], mine);
    }
    return bad;
  });
  std::set<D_QUARK> distinct;
  for (int k = 0; k < kKeys; ++k) {
    int types = 0, cvts = 0;
    for (const Seen &s : seen) {
      EXPECT_TRUE(s.shared[k] == seen[0].shared[k] && s.lobes[k] == seen[0].lobes[k]) << k;
      distinct.insert({s.shared[k], s.own[k]});
      types += s.types[k] != nullptr;
      cvts += s.cvts[k] != nullptr;
    }
    EXPECT_TRUE(types == 1 && cvts == 1) << k << ": " << types << " types, " << cvts << " converters";
    EXPECT_EQ(D_TRUE, DutTimeCvtDestroy(DutTimeCvtLookup(name("tsan_cvt", 0, k).c_str())));
  }
  EXPECT_EQ(static_cast<size_t>((kThreads + 1) * kKeys), distinct.size());
}

// Options made, set and found by name in any case at once; other threads'
// options are visible, or not there yet.
TEST(LibraryThreads, OptionsCreatedSetAndLookedUpAtOnce) {
  constexpr int kPerThread = 12;
  // The table and the standard options exist before the race, as a host
  // makes them at start-up.
  ASSERT_NE(nullptr, DutGetOptionTable());
  together([&](int i) {
    D_WORD bad = 0;
    const std::string stem = "tsan_opt" + std::to_string(i);
    for (int k = 0; k < kPerThread; ++k) {
      D_OPTION *option = DutOptionCreate(name(stem, 0, k).c_str(), D_OPT_TYPE_NUMERIC);
      bad += option == nullptr || !DutOptionSetNum(option, i * 1000 + k);
    }
    for (int k = 0; k < kPerThread; ++k) {
      D_OPTION *found = DutOptionLookup(name(stem, 1, k).c_str());
      D_REAL8 value = -1;
      bad += found == nullptr || !DutOptionGetNum(found, &value) || value != i * 1000 + k;
    }
    D_OPTION *other = DutOptionLookup(name("tsan_opt" + std::to_string((i + 1) % kThreads), 0, 0).c_str());
    bad += other == nullptr && DutErrNumGet() != D_ERR_DOESNT_EXIST;
    D_INT4 count = 0;
    D_OPTION **sorted = DutOptionSort(&count);
    bad += sorted == nullptr || count < kPerThread;
    DutFreeCheck(sorted, "sorted", "tsan", __LINE__);
    for (int k = 0; k < kPerThread; ++k) bad += !DutOptionDestroy(DutOptionLookup(name(stem, 0, k).c_str()));
    return bad;
  });
  EXPECT_EQ(nullptr, DutOptionLookup(name("tsan_opt0", 0, 0).c_str()));
}

// The "full" converter's buffer and the day it keeps are shared by all
// threads. A thread that converts and copies under the process-wide lock
// gets exactly the text its time gets alone, while the other threads'
// conversions take only the converter's own lock (every other one bare, its
// text not read). Each thread's times carry a fraction of their own, so a
// text mixed from two conversions matches no expected one.
TEST(LibraryThreads, FullTextsCopiedUnderTheLockAreExactWhileOthersConvert) {
  constexpr int kTimes = 24000;
  D_TIME_CVT *full = DutTimeCvtLookup("full");
  ASSERT_NE(nullptr, full);
  auto time = [](int i, int k) { return 1000000000.0 + i * 90000.0 + k * 97.0 + i * 0.125; };
  std::vector<std::vector<std::string>> alone(kThreads);
  for (int i = 0; i < kThreads; ++i) {
    for (int k = 0; k < kTimes; k += 2) {
      const char *text = nullptr;
      ASSERT_TRUE(DutTimeCvtNumToStr(full, time(i, k), &text));
      alone[i].push_back(text);
    }
  }
  together([&](int i) {
    D_WORD bad = 0;
    for (int k = 0; k < kTimes; ++k) {
      const char *text = nullptr;
      const bool locked = k % 2 == 0;
      if (locked) DutProcessMutexLock();
      bad += !DutTimeCvtNumToStr(full, time(i, k), &text) || (locked && alone[i][k / 2] != text);
      if (locked) DutProcessMutexUnlock();
    }
    return bad;
  });
}

// Every line arrives once, whole, each thread's in order; printing never
// changes the caller's four error values, and the text of an unknown
// number lives in the thread's own buffer.
TEST(LibraryThreads, PrintingFromManyThreadsKeepsLinesWholeAndErrorsIntact) {
  constexpr int kLines = 100;
  // The output function runs under the process-wide lock: the capture
  // needs no lock of its own.
  vqtest::OutputCapture capture;
  together([](int i) {
    D_WORD bad = 0;
    DutErrNumSetC(1000 + i);
    bad += DutErrNumGet() != D_ERR_C;
    DutErrNumSetOs(7000 + i);
    DutErrNumSetSocket(10000 + i);
    DutErrNumSet(200 + i);
    for (int n = 0; n < kLines; ++n) {
      const D_INT4 unknown = 100000 + i * 1000 + n;
      const char *text = DutErrNumToStr(unknown);
      if (n % 10 == 0) {
        DutWarning("thread %d line %d\n", i, n);
      } else {
        DutOut("thread %d line %d\n", i, n);
      }
      bad += DutErrNumGet() != 200 + i || *DutErrNumGetPtr() != 200 + i || DutErrNumGetC() != 1000 + i ||
             DutErrNumGetOs() != 7000 + i || DutErrNumGetSocket() != 10000 + i ||
             text != "unknown error " + std::to_string(unknown);
    }
    return bad;
  });
  const std::string printed = capture.Take();
  std::map<int, int> next;
  int lines = 0, thread = -1, n = -1;
  for (size_t start = 0, end; (end = printed.find('\n', start)) != std::string::npos; start = end + 1, ++lines) {
    std::string line = printed.substr(start, end - start);
    if (line.rfind("WARNING: ", 0) == 0) line.erase(0, 9);
    ASSERT_EQ(2, std::sscanf(line.c_str(), "thread %d line %d", &thread, &n)) << line;
    EXPECT_EQ(next[thread]++, n) << line;
  }
  EXPECT_EQ(kThreads * kLines, lines);
  EXPECT_EQ('\n', printed.back());
}

}  // namespace

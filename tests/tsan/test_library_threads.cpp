// Several library threads using the process-wide registries at once:
// quarks, lobes, callback types, options, time converters, printing and
// the per-thread error numbers. Run under ThreadSanitizer these must be
// silent; without it they still check that no update was lost and that
// every thread saw consistent answers.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cctype>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "rwmutex/rw_support.hpp"
#include "vqutil/callback.h"
#include "vqutil/lobe.h"
#include "vqutil/memory.h"
#include "vqutil/option.h"
#include "vqutil/output.h"
#include "vqutil/quark.h"
#include "vqutil/time.h"

using rwtest::LibThread;

namespace {

constexpr int kThreads = 8;

// Runs body(index) on kThreads library threads released together, and
// returns their exit codes.
std::vector<D_WORD> runTogether(const std::function<D_WORD(int)> &body, int count = kThreads) {
  std::atomic<int> ready{0};
  std::atomic<bool> go{false};
  std::vector<std::unique_ptr<LibThread>> threads;
  for (int i = 0; i < count; ++i) {
    threads.push_back(std::make_unique<LibThread>([&, i] {
      ready++;
      while (!go.load()) DutWinSleep(0.0);
      return body(i);
    }));
  }
  rwtest::waitUntil([&] { return ready.load() == count; });
  go = true;
  std::vector<D_WORD> codes;
  for (auto &t : threads) codes.push_back(t->join());
  return codes;
}

std::string unique(const std::string &stem) { return stem + "_" + std::to_string(getpid()); }

// ---- Error numbers ------------------------------------------------------------

TEST(LibraryThreads, ErrorNumbersStayPerThread) {
  auto codes = runTogether([](int i) {
    const D_INT4 mine = 100 + i;
    const D_INT4 my_c = 1000 + i;
    D_WORD bad = 0;
    for (int round = 0; round < 500; ++round) {
      DutErrNumSet(mine);
      DutErrNumSetC(my_c);
      if (round % 50 == 0) DutWinSleep(0.0);
      if (DutErrNumGet() != D_ERR_C || DutErrNumGetC() != my_c) bad++;
      DutErrNumSet(mine);
      if (DutErrNumGet() != mine || *DutErrNumGetPtr() != mine) bad++;
    }
    return bad;
  });
  for (int i = 0; i < kThreads; ++i) EXPECT_EQ(0, codes[i]) << "thread " << i;
}

// ---- Quarks ---------------------------------------------------------------------

TEST(LibraryThreads, QuarksAreTheSameForEveryThread) {
  constexpr int kShared = 64;
  constexpr int kOwn = 32;
  // Thread i writes the quark it got for shared string s at [i][s].
  std::vector<std::vector<D_QUARK>> shared(kThreads, std::vector<D_QUARK>(kShared, 0));
  std::vector<std::vector<D_QUARK>> own(kThreads, std::vector<D_QUARK>(kOwn, 0));
  const std::string stem = unique("tsan_quark");
  auto codes = runTogether([&](int i) {
    D_WORD bad = 0;
    for (int s = 0; s < kShared; ++s) {
      // Different spellings of one string: case is ignored.
      std::string text = stem + "_shared_" + std::to_string(s);
      if (i % 2) for (char &c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
      if (DutStrToQuark(text.c_str(), &shared[i][s]) != D_TRUE) bad++;
      std::string mine = stem + "_own_" + std::to_string(i) + "_" + std::to_string(s % kOwn);
      if (DutStrToQuark(mine.c_str(), &own[i][s % kOwn]) != D_TRUE) bad++;
      const char *back = nullptr;
      if (DutQuarkToStr(own[i][s % kOwn], &back) != D_TRUE || mine != back) bad++;
    }
    return bad;
  });
  std::set<D_QUARK> distinct;
  for (int i = 0; i < kThreads; ++i) {
    EXPECT_EQ(0, codes[i]) << "thread " << i;
    for (int s = 0; s < kShared; ++s) EXPECT_EQ(shared[0][s], shared[i][s]) << i << "/" << s;
    for (int s = 0; s < kOwn; ++s) distinct.insert(own[i][s]);
  }
  for (int s = 0; s < kShared; ++s) distinct.insert(shared[0][s]);
  // No two strings ever got the same quark.
  EXPECT_EQ(static_cast<size_t>(kThreads * kOwn + kShared), distinct.size());
}

// ---- Lobes and callback types ------------------------------------------------------

TEST(LibraryThreads, LobesDeclaredOnceWhoeverComesFirst) {
  constexpr int kKeys = 40;
  const D_UINT4 base = 0x7A000000u + static_cast<D_UINT4>(getpid() % 4096) * 64u;
  std::vector<std::vector<D_LOBE *>> seen(kThreads, std::vector<D_LOBE *>(kKeys, nullptr));
  auto codes = runTogether([&](int i) {
    D_WORD bad = 0;
    for (int k = 0; k < kKeys; ++k) {
      D_LOBE *lobe = DutLobeDeclare(base + static_cast<D_UINT4>(k), 8);
      seen[i][k] = lobe;
      if (lobe == nullptr || DutLobeLookup(base + static_cast<D_UINT4>(k)) != lobe) bad++;
    }
    // Values on a lobe of this thread's own: no other thread touches it.
    D_LOBE *mine = DutLobeDeclare(base + kKeys + static_cast<D_UINT4>(i), sizeof(D_INT4));
    D_INT4 objects[16];
    for (D_INT4 o = 0; o < 16; ++o) {
      D_INT4 value = i * 100 + o;
      if (DutLobeSet(&objects[o], mine, &value) != D_TRUE) bad++;
    }
    for (D_INT4 o = 0; o < 16; ++o) {
      D_INT4 value = -1;
      if (DutLobeGet(&objects[o], mine, &value) != D_TRUE || value != i * 100 + o) bad++;
      DutLobeDelete(&objects[o], mine);
    }
    return bad;
  });
  for (int i = 0; i < kThreads; ++i) {
    EXPECT_EQ(0, codes[i]) << "thread " << i;
    for (int k = 0; k < kKeys; ++k) EXPECT_EQ(seen[0][k], seen[i][k]) << i << "/" << k;
  }
}

TEST(LibraryThreads, EachCallbackTypeNumberIsWonOnce) {
  constexpr int kTypes = 24;
  const D_INT4 base = 500000 + (getpid() % 1000) * 100;
  const std::string stem = unique("tsan_cbtype");
  std::vector<std::vector<D_CB_TYPE *>> created(kThreads, std::vector<D_CB_TYPE *>(kTypes, nullptr));
  auto codes = runTogether([&](int i) {
    D_WORD bad = 0;
    for (int t = 0; t < kTypes; ++t) {
      std::string name = stem + "_" + std::to_string(t);
      created[i][t] = DutCbTypeCreate(base + t, name.c_str());
      D_CB_TYPE *by_num = DutCbTypeNumLookup(base + t);
      if (by_num == nullptr || DutCbTypeLookup(name.c_str()) != by_num) bad++;
    }
    return bad;
  });
  for (int t = 0; t < kTypes; ++t) {
    int winners = 0;
    D_CB_TYPE *winner = nullptr;
    for (int i = 0; i < kThreads; ++i) {
      if (created[i][t] != nullptr) {
        winners++;
        winner = created[i][t];
      }
    }
    EXPECT_EQ(1, winners) << "type " << t;
    EXPECT_EQ(winner, DutCbTypeNumLookup(base + t));
  }
  for (int i = 0; i < kThreads; ++i) EXPECT_EQ(0, codes[i]) << "thread " << i;
}

// ---- Options ---------------------------------------------------------------------

TEST(LibraryThreads, OptionsCreatedSetAndLookedUpAtOnce) {
  constexpr int kPerThread = 12;
  const std::string stem = unique("tsan_opt");
  // Make sure the table and the standard options exist before the race,
  // as a host would at start-up.
  ASSERT_NE(nullptr, DutGetOptionTable());
  auto codes = runTogether([&](int i) {
    D_WORD bad = 0;
    std::vector<D_OPTION *> mine;
    for (int k = 0; k < kPerThread; ++k) {
      std::string name = stem + "_" + std::to_string(i) + "_" + std::to_string(k);
      D_OPTION *option = DutOptionCreate(name.c_str(), D_OPT_TYPE_NUMERIC);
      if (option == nullptr) {
        bad++;
        continue;
      }
      mine.push_back(option);
      if (DutOptionSetNum(option, i * 1000 + k) != D_TRUE) bad++;
    }
    for (int k = 0; k < kPerThread; ++k) {
      std::string upper = stem + "_" + std::to_string(i) + "_" + std::to_string(k);
      for (char &c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
      D_OPTION *found = DutOptionLookup(upper.c_str());
      D_REAL8 value = -1;
      if (found == nullptr || DutOptionGetNum(found, &value) != D_TRUE || value != i * 1000 + k) bad++;
    }
    // Another thread's options are visible (they may not exist yet).
    std::string other = stem + "_" + std::to_string((i + 1) % kThreads) + "_0";
    D_OPTION *seen = DutOptionLookup(other.c_str());
    if (seen == nullptr && DutErrNumGet() != D_ERR_DOESNT_EXIST) bad++;
    D_INT4 count = 0;
    D_OPTION **sorted = DutOptionSort(&count);
    if (sorted == nullptr || count < kPerThread) bad++;
    DutFreeCheck(sorted, "sorted", "tsan", __LINE__);
    for (D_OPTION *option : mine) {
      if (DutOptionDestroy(option) != D_TRUE) bad++;
    }
    return bad;
  });
  for (int i = 0; i < kThreads; ++i) EXPECT_EQ(0, codes[i]) << "thread " << i;
  std::string gone = stem + "_0_0";
  EXPECT_EQ(nullptr, DutOptionLookup(gone.c_str()));
}

// ---- Time converters --------------------------------------------------------------

D_BOOL numToStr(D_REAL8, const char **str) {
  *str = "t";
  return D_TRUE;
}
D_BOOL strToNum(const char *, D_REAL8 *time) {
  *time = 1.0;
  return D_TRUE;
}

TEST(LibraryThreads, TimeConvertersRegisteredOncePerName) {
  constexpr int kNames = 10;
  const std::string stem = unique("tsan_cvt");
  std::vector<std::vector<D_TIME_CVT *>> created(kThreads, std::vector<D_TIME_CVT *>(kNames, nullptr));
  auto codes = runTogether([&](int i) {
    D_WORD bad = 0;
    for (int n = 0; n < kNames; ++n) {
      std::string name = stem + "_" + std::to_string(n);
      created[i][n] = DutTimeCvtCreate(name.c_str(), numToStr, strToNum, nullptr);
      if (DutTimeCvtLookup(name.c_str()) == nullptr) bad++;
      // Reading the wall clock and the current time races nothing.
      if (DutGetWallTime() <= 0.0) bad++;
      DutGetCurrentTime();
    }
    return bad;
  });
  for (int n = 0; n < kNames; ++n) {
    int winners = 0;
    for (int i = 0; i < kThreads; ++i) winners += created[i][n] != nullptr;
    EXPECT_EQ(1, winners) << "name " << n;
    std::string name = stem + "_" + std::to_string(n);
    D_TIME_CVT *cvt = DutTimeCvtLookup(name.c_str());
    ASSERT_NE(nullptr, cvt);
    EXPECT_EQ(D_TRUE, DutTimeCvtDestroy(cvt));
  }
  for (int i = 0; i < kThreads; ++i) EXPECT_EQ(0, codes[i]) << "thread " << i;
}

// ---- Printing ---------------------------------------------------------------------

// The output function runs under the process-wide lock: appending here
// needs no lock of its own.
std::string g_printed;
int collect(const char *format, va_list args) {
  char buffer[512];
  int n = std::vsnprintf(buffer, sizeof buffer, format, args);
  g_printed += buffer;
  return n;
}

TEST(LibraryThreads, PrintingFromManyThreadsKeepsLinesWholeAndErrorsIntact) {
  constexpr int kLines = 100;
  D_OUTPUT_FUNC saved = DutGetOutputFunc();
  DutSetOutputFunc(collect);
  g_printed.clear();
  auto codes = runTogether([](int i) {
    D_WORD bad = 0;
    DutErrNumSet(200 + i);
    for (int n = 0; n < kLines; ++n) {
      if (n % 10 == 0) {
        DutWarning("thread %d warns %d\n", i, n);
      } else {
        DutOut("thread %d line %d\n", i, n);
      }
      // Printing never changes the caller's error number.
      if (DutErrNumGet() != 200 + i) bad++;
    }
    return bad;
  });
  DutSetOutputFunc(saved);
  for (int i = 0; i < kThreads; ++i) EXPECT_EQ(0, codes[i]) << "thread " << i;

  // Every line arrived once, whole, and each thread's lines in order.
  std::map<int, int> next;
  size_t start = 0;
  int lines = 0;
  while (start < g_printed.size()) {
    size_t end = g_printed.find('\n', start);
    ASSERT_NE(std::string::npos, end);
    std::string line = g_printed.substr(start, end - start);
    start = end + 1;
    int thread = -1, n = -1;
    if (std::sscanf(line.c_str(), "WARNING: thread %d warns %d", &thread, &n) != 2) {
      ASSERT_EQ(2, std::sscanf(line.c_str(), "thread %d line %d", &thread, &n)) << line;
    }
    EXPECT_EQ(next[thread], n) << line;
    next[thread] = n + 1;
    lines++;
  }
  EXPECT_EQ(kThreads * kLines, lines);
}

}  // namespace

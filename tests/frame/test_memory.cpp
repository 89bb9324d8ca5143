// Checked memory: zero-size requests, trace lines, freeing null, the
// out-of-heap report and the initial break.
#include <sys/resource.h>

#include <cstdint>
#include <regex>
#include <vector>

#include "support/address_text.hpp"
#include "child.hpp"
#include "vqutil/memory.h"

namespace {

using vqtest::Decimal;

// Zero sizes give distinct, usable blocks; a zero-size reallocation never
// frees. Calloc zeroes, realloc keeps the contents it can, and a null
// block reallocates as an allocation. The initial break is taken once, and
// the current one never goes down.
TEST(MemoryLower, ZeroSizesCallocReallocAndTheBreak) {
  auto *a = static_cast<unsigned char *>(DutMalloc(0));
  auto *c = static_cast<unsigned char *>(DutCalloc(0));
  ASSERT_TRUE(a && c && a != c && c[0] == 0);
  auto *d = static_cast<unsigned char *>(DutRealloc(a, 0));
  ASSERT_NE(d, nullptr);
  d[0] = 0x11;
  DutFree(d);
  DutFree(c);
  auto *block = static_cast<unsigned char *>(DutCalloc(64));
  EXPECT_EQ(std::vector<unsigned char>(block, block + 64), std::vector<unsigned char>(64));
  for (int i = 0; i < 64; ++i) block[i] = static_cast<unsigned char>(i);
  block = static_cast<unsigned char *>(DutRealloc(block, 4096));
  for (int i = 0; i < 64; ++i) EXPECT_EQ(block[i], i);
  DutFree(block);
  DutFree(DutRealloc(nullptr, 16));
  DutFree(nullptr);
  const D_UWORD initial = DutGetInitialSbrk();
  const D_UWORD first = DutWinGetCurrentSbrk();
  EXPECT_TRUE(initial != 0u && initial <= first);  // the mark is a reading of the same high-water value
  std::vector<void *> blocks;
  for (int i = 0; i < 64; ++i) blocks.push_back(DutMalloc(64 * 1024));
  const D_UWORD second = DutWinGetCurrentSbrk();
  DutSetInitialSbrk();
  for (void *chunk : blocks) DutFree(chunk);
  EXPECT_EQ(DutGetInitialSbrk(), initial);
  EXPECT_GE(second, first);
  EXPECT_GE(DutWinGetCurrentSbrk(), second);
}

// With tracing off nothing is written, so the debug file never opens. A
// null block reallocates as the library's own allocation, traced as "var";
// the macros label with the variable's text. Freeing null warns, into the
// debug file as well, and goes on.
TEST(MemoryChecked, TraceLinesOnlyWithTracingInTheExactFormatAndFreeingNull) {
  RunClean([] {
    DutFreeCheck(DutReallocCheck(DutCallocCheck(0, "z", "x.c", 10), 48, "z", "x.c", 8), "z", "x.c", 11);
    EXPECT_EQ(DutDebugFilePtr(), nullptr);
    DutDebugOpen("mem");
    vqtest::OutputCapture capture;
    SetAllFour(0, 0, 0, 0);  // the thread's error record exists before tracing starts
    DutGetDebugFlags()[D_DEBUG_MEMORY] = 1;
    void *node = DutMallocCheck(24, "node", "x.c", 7);
    void *table = DutCallocCheck(100, "table->buckets", "hash.c", 200);
    void *grown = DutReallocCheck(node, 4000, "node", "x.c", 8);
    void *fresh = DutReallocCheck(nullptr, 10, "buf", "y.c", 9);
    std::string expected = "D_MALLOC: node (" + Decimal(node) + "): 24 bytes: file x.c, line 7\n" +
                           "D_CALLOC: table->buckets (" + Decimal(table) + "): 100 bytes: file hash.c, line 200\n" +
                           "D_REALLOC: node (" + Decimal(grown) + "): 4000 bytes: file x.c, line 8\n" +
                           "D_MALLOC: var (" + Decimal(fresh) + "): 10 bytes: file util.c, line 1854\n" +
                           "D_FREE: node (" + Decimal(grown) + "): file x.c, line 9\n";
    DutFreeCheck(grown, "node", "x.c", 9);
    DutFree(fresh);
    DutFree(table);
    char *name_buffer = nullptr;
    const int line = __LINE__ + 1;
    D_MALLOC(name_buffer, 12);
    const std::string address = Decimal(name_buffer);
    D_FREE(name_buffer);
    expected += "D_MALLOC: name_buffer (" + address + "): 12 bytes: file " + __FILE__ + ", line " +
                std::to_string(line) + "\nD_FREE: name_buffer (" + address + "): file " + __FILE__ + ", line " +
                std::to_string(line + 2) + "\n";
    EXPECT_EQ(ReadFile("mem.dbg"), expected);

    DutFreeCheck(nullptr, "gone", "z.c", 3);
    const std::string warning = capture.Take();
    EXPECT_TRUE(std::regex_search(
        warning, std::regex("^WARNING: Internal validation <\\(var\\) != NULL> failed, file: util\\.c, line [0-9]+\n"
                            "WARNING: Please report this to Quandrel Technical Support\\.\nLast VQsuite Error")))
        << warning;
    EXPECT_EQ(ReadFile("mem.dbg"), expected + warning + "D_FREE: gone (0): file z.c, line 3\n");
  });
}

TEST(MemoryChecked, ExhaustionIsAFatalErrorNamingTheCaller) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "the sanitizer's allocator dies on huge requests";
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
  GTEST_SKIP() << "the sanitizer's allocator dies on huge requests";
#endif
#endif
  RunClean([] {
    ::setenv("VQ_FATAL_ERROR_CONTINUE", "1", 1);
    std::FILE *report = std::fopen("fatal.txt", "w");
    ASSERT_TRUE(report != nullptr && DutSetFatalErrorFile(report));
    // A small address space makes the largest request fail for certain.
    struct rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_AS, &limit), 0);
    limit.rlim_cur = rlim_t{1} << 30;
    ASSERT_EQ(::setrlimit(RLIMIT_AS, &limit), 0);
    EXPECT_EQ(DutMallocCheck(INT32_MAX, "huge", "big.c", 5), nullptr);
    EXPECT_EQ(DutCallocCheck(INT32_MAX, "huger", "big.c", 6), nullptr);
    void *small = DutMallocCheck(8, "small", "big.c", 7);
    ASSERT_NE(small, nullptr);
    EXPECT_EQ(DutReallocCheck(small, INT32_MAX, "hugest", "big.c", 8), nullptr);
    DutFree(small);  // a failed realloc leaves the old block alone
    const std::string text = ReadFile("fatal.txt");
    for (const char *what : {"D_MALLOC <huge>: 2147483647 bytes: out of heap: file big.c, line 5\n",
                             "D_CALLOC <huger>: 2147483647 bytes: out of heap: file big.c, line 6\n",
                             "D_REALLOC <hugest>: 2147483647 bytes: out of heap: file big.c, line 8\n"})
      EXPECT_NE(text.find(std::string("\n*** FATAL ERROR ***\n") + what), std::string::npos)
          << what << "\nin\n" << text;
  });
}

}  // namespace

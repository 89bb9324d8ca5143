// Safe strings: where the buffer grows, by how much, and what shrinking,
// clearing and resizing keep.
#include "vqutil/safestr.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "support/output_capture.hpp"
#include "vqutil/error.h"

namespace {

// Every operation against a std::string and the size the buffer must have:
// growth goes one quantum at a time until the text and its NUL fit, a
// resize rounds up to a multiple of 256 and never shrinks, clearing and
// shortening keep the buffer.
TEST(SafeStringModel, RandomOperationsMatchAStringAndItsSize) {
  std::mt19937 rng(3);
  for (int round = 0; round < 4; ++round) {
    D_INT4 size = round % 2 ? 1 + static_cast<D_INT4>(rng() % 40) : 256;
    D_SAFE_STRING s = round % 2 ? DutSafeStringQCreate(size) : DutSafeStringCreate();
    std::string text;
    auto grow = [&](D_INT4 quantum) {
      while (static_cast<D_INT4>(text.size()) + 1 > size) size += quantum;
    };
    for (int step = 0; step < 400; ++step) {
      const D_INT4 quantum = 1 + static_cast<D_INT4>(rng() % 300);
      const std::string piece(rng() % 90, static_cast<char>('a' + step % 26));
      const char c = static_cast<char>('A' + step % 26);
      const D_INT4 count = static_cast<D_INT4>(rng() % 40) - 5;
      DutErrNumSet(0);
      switch (rng() % 10) {
        case 0: DutSafeStringAppend(&s, piece.c_str()); text += piece; grow(256); break;
        case 1: DutSafeStringQAppend(&s, piece.c_str(), quantum); text += piece; grow(quantum); break;
        case 2: DutSafeStringAppendChar(&s, c); text += c; grow(256); break;
        case 3: DutSafeStringQAppendChar(&s, c, quantum); text += c; grow(quantum); break;
        case 4: DutSafeStringCopy(&s, piece.c_str()); text = piece; grow(256); break;
        case 5: DutSafeStringQCopy(&s, piece.c_str(), quantum); text = piece; grow(quantum); break;
        case 6: DutSafeStringClear(&s); text.clear(); break;
        case 7: {
          const D_INT4 wanted = size + count * 20;
          EXPECT_EQ(DutSafeStringResize(&s, wanted), wanted > size);
          if (wanted > size) size = (wanted + 255) / 256 * 256;
          break;
        }
        case 8: if (s.length < 600) DutSafeStringAppend(&s, s.str), text += text, grow(256); break;  // own text
        default: {
          const D_INT4 length = static_cast<D_INT4>(text.size());
          const D_INT4 err = count < 0 ? D_ERR_VAL_TOO_SMALL : (count > length ? D_ERR_VAL_INVALID : 0);
          EXPECT_EQ(DutSafeStringShorten(&s, count), err == 0);
          EXPECT_EQ(DutErrNumGet(), err);
          if (err == 0) text.resize(text.size() - static_cast<size_t>(count));
        }
      }
      ASSERT_EQ(std::string(s.str), text) << "round " << round << " step " << step;
      ASSERT_EQ(s.length, static_cast<D_INT4>(text.size()));
      ASSERT_EQ(s.size, size) << "round " << round << " step " << step;
    }
    DutSafeStringDestroy(s);
  }
}

// A record without a buffer: clearing or copying makes a fresh one of 256
// bytes; resizing and shortening refuse it.
TEST(SafeStringErrors, RecordsWithoutABuffer) {
  D_SAFE_STRING none = {nullptr, 0, 0};
  vqtest::ExpectRefused(D_ERR_NULL_PTR, {AS_WORD(DutSafeStringResize(nullptr, 1000)),
                                         AS_WORD(DutSafeStringResize(&none, 1000)),
                                         AS_WORD(DutSafeStringShorten(nullptr, 0))});
  EXPECT_EQ(none.size, 0);
  DutSafeStringClear(&none);
  ASSERT_NE(none.str, nullptr);
  EXPECT_EQ(std::make_pair(none.size, none.length), std::make_pair(256, 0));
  DutSafeStringDestroy(none);
  D_SAFE_STRING copied = {nullptr, 0, 0};
  DutSafeStringCopy(&copied, "fresh");
  EXPECT_STREQ(copied.str, "fresh");
  EXPECT_EQ(copied.size, 256);
  DutSafeStringDestroy(copied);
}

TEST(SafeStringDeathTest, AssertionsOnBadAppends) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  D_SAFE_STRING none = {nullptr, 0, 0}, s = DutSafeStringCreate();
  VQTEST_EXPECT_ASSERTION(DutSafeStringAppendChar(&s, '\0'), "c");
  VQTEST_EXPECT_ASSERTION(DutSafeStringAppend(&s, nullptr), "src");
  VQTEST_EXPECT_ASSERTION(DutSafeStringAppend(nullptr, "x"), "dest");
  VQTEST_EXPECT_ASSERTION(DutSafeStringAppend(&none, "x"), "dest->str");
  VQTEST_EXPECT_ASSERTION(DutSafeStringClear(nullptr), "safe_str");
  DutSafeStringDestroy(s);
}

}  // namespace

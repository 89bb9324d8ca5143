// String utilities: case-insensitive comparison, search, extraction and
// replacement (with the 255-character limit), tokens, names and lists, the
// wall-clock text, and the quoted form of the dump functions.
#include "vqutil/strutil.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "support/output_capture.hpp"
#include "support/random_text.hpp"
#include "vqutil/error.h"
#include "vqutil/memory.h"

namespace {

using vqtest::OutputCapture;

// A caller-owned new string, freed at the end of its scope.
struct FreeCheck {
  void operator()(char *p) const { DutFreeCheck(p, "owned", "strutil_test", __LINE__); }
};
using Owned = std::unique_ptr<char, FreeCheck>;

int fold(char c) { return static_cast<signed char>(c >= 'A' && c <= 'Z' ? c + 32 : c); }
std::string folded(std::string s) {
  for (char &c : s) c = static_cast<char>(fold(c));
  return s;
}
// An empty text is found at the end.
D_INT4 refFind(const std::string &text, const std::string &str) {
  const auto at = text.empty() ? str.size() : str.find(text);
  return at == std::string::npos ? -1 : static_cast<D_INT4>(at);
}

// Small references of the string functions on random texts that mix cases
// and hold characters that are neither letters nor digits. The counted
// comparison compares the first character before it looks at the count;
// replacing all goes on from the start until nothing is found, and refuses
// a text that passes 255 characters or one replaced by itself.
TEST(StrModel, RandomTextsAgainstReferences) {
  std::mt19937 rng(5);
  auto text = [&](unsigned longest) { return vqtest::RandomText(rng, longest, "aAbB.-"); };
  for (int round = 0; round < 4000; ++round) {
    const std::string a = text(6), b = rng() % 3 ? text(6) : folded(a), part = a.substr(0, rng() % 3);
    const std::string new_text = a.substr(rng() % 2 * (a.size() / 2), rng() % 4);
    const D_INT4 count = static_cast<D_INT4>(rng() % 8) - 2, start = static_cast<D_INT4>(rng() % 9) - 1;
    SCOPED_TRACE("<" + a + "> <" + b + "> <" + new_text + "> " + std::to_string(count) + " " +
                 std::to_string(start));
    auto cmpi = [&](D_INT4 n) {
      D_INT4 d = 0;
      for (D_INT4 i = 0; d == 0 && (i == 0 || i < n) && i <= static_cast<D_INT4>(std::min(a.size(), b.size())); ++i)
        d = fold(a.c_str()[i]) - fold(b.c_str()[i]);
      return d;
    };
    ASSERT_EQ(DutStrNCmpi(a.c_str(), b.c_str(), count), cmpi(count));
    ASSERT_EQ(DutStrCmpi(a.c_str(), b.c_str()), cmpi(INT32_MAX));
    ASSERT_EQ(DutStrStartsWith(a.c_str(), b.c_str()), a.starts_with(b));
    ASSERT_EQ(DutStriStartsWith(a.c_str(), b.c_str()), folded(a).starts_with(folded(b)));
    ASSERT_EQ(DutStrEndsWith(a.c_str(), b.c_str()), a.ends_with(b));
    ASSERT_EQ(DutStriEndsWith(a.c_str(), b.c_str()), folded(a).ends_with(folded(b)));
    ASSERT_EQ(DutFindSubString(part.c_str(), b.c_str()), refFind(part, b));

    char out[16] = "garbage";
    const bool valid = start >= 1 && start <= static_cast<D_INT4>(a.size()) && count >= 1;
    const std::string sub = valid ? a.substr(static_cast<size_t>(start - 1), static_cast<size_t>(count)) : "";
    const bool whole = valid && static_cast<D_INT4>(sub.size()) == count;
    EXPECT_FAILS(DutGetSubStr(a.c_str(), out, start, count), whole,
                 whole ? 0 : valid ? D_ERR_VAL_TOO_LARGE : D_ERR_VAL_INVALID);
    ASSERT_EQ(std::string(out), sub);

    std::string stripped = a, id = a, upper = a, buffer = a;
    stripped.erase(std::remove(stripped.begin(), stripped.end(), 'a'), stripped.end());
    ASSERT_STREQ(Owned(DutStrStripChar(a.c_str(), 'a')).get(), stripped.c_str());
    for (char &c : id) c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
    ASSERT_TRUE(DutStrToIdFileName(buffer.data()) && buffer == id);
    for (char &c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    ASSERT_STREQ(DutStrUpr(buffer.data(), a.c_str()), upper.c_str());
    ASSERT_STREQ(DutStrLwr(buffer.data(), buffer.c_str()), folded(a).c_str());  // in place

    // Lists: copies of every string, compared by position ignoring case.
    const char *list[] = {a.c_str(), b.c_str()}, *swapped[] = {b.c_str(), a.c_str()};
    char **copy = DutStrListDup(list, 2);
    ASSERT_TRUE(copy[0] != list[0] && copy[0] == a && copy[1] == b && DutStrListEquali(list, 2, copy, 2) &&
                !DutStrListEquali(list, 2, copy, 1));
    ASSERT_EQ(DutStrListEquali(swapped, 2, copy, 2), folded(a) == folded(b));
    for (char *p : {copy[0], copy[1], reinterpret_cast<char *>(copy)}) DutFreeCheck(p, "copy", "strutil", __LINE__);
    ASSERT_STREQ(Owned(DutStrDup(a.c_str())).get(), a.c_str());

    // Tokens with the rest after each: one blank consumed, no rest at the end.
    std::string words = text(8), seen, wanted;
    for (char &c : words) c = c == '.' ? ' ' : c == '-' ? '\t' : c;
    const std::string original = words;
    char *rest = words.data() + 1;
    for (char *t = DutStrTok(words.data(), &rest); t != nullptr; t = DutStrTok(rest, &rest))
      seen += "<" + std::string(t) + ">" + (rest != nullptr ? rest : "(null)");
    ASSERT_EQ(rest, nullptr);
    for (std::size_t at = 0, end; (at = original.find_first_not_of(" \t", at)) != std::string::npos; at = end + 1) {
      end = std::min(original.find_first_of(" \t", at), original.size());
      wanted += "<" + original.substr(at, end - at) + ">";
      wanted += end < original.size() ? original.substr(end + 1) : "(null)";
    }
    ASSERT_EQ(seen, wanted);

    auto once = [&](const std::string &s) {
      const D_INT4 at = refFind(part, s);
      return at < 0 ? s : s.substr(0, at) + new_text + s.substr(at + part.size());
    };
    D_BOOL replaced = -1;
    const char *one = DutStrReplaceOne(b.c_str(), part.c_str(), new_text.c_str(), &replaced);
    ASSERT_TRUE(replaced == (refFind(part, b) >= 0) && (one == b.c_str()) == !replaced && one == once(b));
    std::string all = b;
    D_INT4 error = 0, step = 0;
    for (; error == 0 && refFind(part, all) >= 0 && step < 300; ++step) {
      const std::string next = once(all);
      error = next.size() > 255 ? D_ERR_VAL_TOO_LARGE : part == new_text ? D_ERR_VAL_INVALID : 0;
      if (error == 0) all = next;
    }
    if (step == 300) continue;  // a pair that cycles without growing: callers avoid those
    OutputCapture capture;
    EXPECT_FAILS(std::string(DutStrReplaceAll(b.c_str(), part.c_str(), new_text.c_str())), error ? b : all, error);
    EXPECT_EQ(capture.Take().rfind("WARNING: DutStrReplaceAll: ", 0), error ? 0U : std::string::npos);
  }
}

TEST(StrPredicates, WhiteSpaceAndRefusals) {
  for (const char *white : {static_cast<const char *>(nullptr), "", " \t\n\r\v\f"})
    EXPECT_EQ(DutIsWhiteEmptyOrNullStr(white), D_TRUE);
  EXPECT_EQ(DutIsWhiteEmptyOrNullStr("  x "), D_FALSE);
  EXPECT_EQ(DutIsWhiteEmptyOrNullStr("\xA0"), D_FALSE);
  const char *list[] = {"one"};
  OutputCapture out;
  // The search answers -1 where the others answer 0.
  vqtest::ExpectRefused(
      D_ERR_NULL_PTR,
      {AS_WORD(DutStrStartsWith(nullptr, "a")), AS_WORD(DutStrStartsWith("a", nullptr)),
       AS_WORD(DutStriStartsWith(nullptr, "a")), AS_WORD(DutStriStartsWith("a", nullptr)),
       AS_WORD(DutStrEndsWith(nullptr, "a")), AS_WORD(DutStrEndsWith("a", nullptr)),
       AS_WORD(DutStriEndsWith(nullptr, "a")), AS_WORD(DutStriEndsWith("a", nullptr)),
       AS_WORD(DutStrStripChar(nullptr, ',')), AS_WORD(DutFindSubString(nullptr, "abc") + 1),
       AS_WORD(DutFindSubString("a", nullptr) + 1), AS_WORD(DutStrToIdFileName(nullptr)),
       AS_WORD(DutStrListDup(nullptr, 1)), AS_WORD(DutStrListEquali(nullptr, 0, list, 0))});
  EXPECT_EQ(DutStrTok(nullptr, nullptr), nullptr);
  EXPECT_FAILS(DutStrListDup(list, -1), nullptr, D_ERR_VAL_TOO_SMALL);
  EXPECT_FAILS(DutStrListEquali(list, 1, list, -1), D_FALSE, D_ERR_VAL_TOO_SMALL);
  EXPECT_EQ(DutStrListEquali(list, 0, list, 0), D_TRUE);
  DutFreeCheck(DutStrListDup(list, 0), "none", "strutil_test", __LINE__);
}

// The 255-character limit, and results that are the static buffers.
TEST(StrReplace, LimitsAndResultsFedBackIn) {
  D_BOOL replaced = -1;
  const char *first = DutStrReplaceOne("aXb", "X", "YY", &replaced);  // a result fed back in
  EXPECT_STREQ(DutStrReplaceOne(first, "Y", "Z", &replaced), "aZYb");
  const std::string base(248, 'b'), fits = base + "<X>", longest(255, 'l'), too_long(256, 'l');
  EXPECT_EQ(std::string(DutStrReplaceOne(fits.c_str(), "X", "12345", &replaced)), base + "<12345>");  // 255
  OutputCapture out;
  EXPECT_FAILS(DutStrReplaceOne(fits.c_str(), "X", "123456", &replaced), fits.c_str(), D_ERR_VAL_TOO_LARGE);
  EXPECT_EQ(replaced, D_FALSE);
  const std::string warning = out.Take();
  EXPECT_EQ(warning.rfind("WARNING: DutStrReplaceOne: ", 0), 0U) << warning;
  EXPECT_NE(warning.find("255"), std::string::npos);
  EXPECT_FAILS(DutStrReplaceOne(nullptr, "a", "b", &replaced), nullptr, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutStrReplaceOne("a", "a", "b", nullptr), nullptr, D_ERR_NULL_PTR);

  EXPECT_STREQ(DutStrReplaceAll(longest.c_str(), "x", "y"), longest.c_str());
  const char *kept = DutStrReplaceAll("keep-me", "-", "+");
  ASSERT_STREQ(kept, "keep+me");
  EXPECT_FAILS(DutStrReplaceAll(too_long.c_str(), "x", "y"), too_long.c_str(), D_ERR_VAL_TOO_LARGE);
  EXPECT_EQ(out.Take().rfind("WARNING: DutStrReplaceAll: ", 0), 0U);
  EXPECT_STREQ(kept, "keep+me");  // the last result survives a refusal
  EXPECT_FAILS(DutStrReplaceAll("a", nullptr, "b"), nullptr, D_ERR_NULL_PTR);
}

// ---- The quoted form: what the dump functions write and that reading it
// back gives the original text, tabs, quotes, backslashes and newlines included.

// An anonymous file holding text, positioned at its start.
FILE *fileWith(const std::string &text) {
  FILE *file = std::tmpfile();
  std::fputs(text.c_str(), file);
  std::rewind(file);
  return file;
}

// Only newline, quote and backslash are escaped; the tab stays raw. Random
// texts are dumped to a string and to a file, separated by the blanks,
// newlines and tabs the readers skip, and read back in turn by the buffer
// reader and the pointer reader. Then the escapes only a writer by hand
// uses, a text past any buffer for the pointer reader (whose scratch text
// is emptied between calls), and an end of file inside a string, which
// stops either reader.
TEST(QuotedForm, RandomTextsDumpEscapedAndReadBack) {
  std::mt19937 rng(8);
  FILE *file = std::tmpfile();
  std::vector<std::string> texts;
  std::string expected;
  for (int i = 0; i < 500; ++i) {
    const std::string text = vqtest::RandomText(rng, 8, "a \t\"\\\n");
    std::string form = "\"";
    for (char c : text) form += c == '\n' ? "\\n" : (c == '"' || c == '\\' ? "\\" : "") + std::string(1, c);
    form += '"';
    std::string out(2 * text.size() + 3, '\0');  // the most it can take
    ASSERT_EQ(DutDumpStringToString(out.data(), text.c_str()), out.data());
    ASSERT_STREQ(out.c_str(), form.c_str());
    ASSERT_EQ(DutDumpString(file, text.c_str()), D_TRUE);
    std::fputs(" \n\t", file);
    expected += form + " \n\t";
    texts.push_back(text);
  }
  std::rewind(file);
  std::string written(expected.size() + 1, '\0');
  written.resize(std::fread(written.data(), 1, written.size(), file));
  EXPECT_EQ(written, expected);
  const std::string long_text(1000, 'L');
  std::fseek(file, 0, SEEK_END);
  std::fputs(("\"a\\tb\\q\\n\"\"" + long_text + "\"\"after\"\"unterminated").c_str(), file);
  texts.insert(texts.end(), {"a\tbq\n", long_text, "after"});
  std::rewind(file);
  for (std::size_t i = 0; i < texts.size(); ++i) {
    char buffer[32];
    const bool by_pointer = i % 2 || i > 500;
    Owned copy(by_pointer ? DutReadStringPtr(file) : nullptr);
    ASSERT_EQ(by_pointer ? std::string(copy.get()) : std::string(DutReadString(file, buffer)), texts[i]) << i;
  }
  const long unterminated = std::ftell(file);
  char buffer[16];
  EXPECT_FAILS(DutReadString(file, buffer), nullptr, D_ERR_EOF);
  EXPECT_STREQ(buffer, "unterminated");
  std::fseek(file, unterminated, SEEK_SET);
  EXPECT_FAILS(DutReadStringPtr(file), nullptr, D_ERR_EOF);
  std::fclose(file);
}

TEST(QuotedFormDeathTest, ReadingWithoutAnOpeningQuoteIsFatal) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  char buffer[16];
  VQTEST_EXPECT_ASSERTION(DutReadString(fileWith("  word"), buffer), "input_char == '\\\\\"'");
  VQTEST_EXPECT_ASSERTION(DutReadString(nullptr, buffer), "file && str");
  VQTEST_EXPECT_ASSERTION(DutDumpString(stdout, nullptr), "str");
  VQTEST_EXPECT_ASSERTION(DutReadStringPtr(nullptr), "file");
}

TEST(StrUtilDeathTest, AssertionsOnNullStrings) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  char out[4];
  VQTEST_EXPECT_ASSERTION(DutStrDup(nullptr), "str != NULL");
  VQTEST_EXPECT_ASSERTION(DutGetSubStr(nullptr, out, 1, 1), "str != NULL");
  VQTEST_EXPECT_ASSERTION(DutGetSubStr("abc", nullptr, 1, 1), "substr != NULL");
  VQTEST_EXPECT_ASSERTION(DutStrLwr(nullptr, "abc"), "dest");
  VQTEST_EXPECT_ASSERTION(DutStrUpr(out, nullptr), "src");
}

}  // namespace

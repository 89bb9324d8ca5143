// The lexer: token kinds and their longest matches, identifiers, patterns,
// numbers, strings, comments, accept functions, error functions, token
// callbacks and reserved words.
#include <gtest/gtest.h>

#include <csetjmp>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/output_capture.hpp"
#include "support/temp_dir.hpp"
#include "vqutil/file.h"
#include "vqutil/lex.h"

namespace {

using vqtest::OutputCapture;

std::string g_error;  // the last message an error function received
jmp_buf g_jump;

void recordingReturn(D_LEX *, const char *format, va_list args, void *) {
  char text[1024];
  std::vsnprintf(text, sizeof text, format, args);
  g_error = text;
}

void recordingJump(D_LEX *lexer, const char *format, va_list args, void *arg) {
  recordingReturn(lexer, format, args, arg);
  DutLexDestroy(lexer);
  std::longjmp(g_jump, D_LEX_JUMP_VALUE);
}

// A token's kind and text.
using Token = std::pair<D_INT4, std::string>;
using Tokens = std::vector<Token>;

// Every token of text up to the end (or an error, recorded in g_error).
Tokens tokens(const char *text, int white_space = 0) {
  Tokens out;
  g_error.clear();
  if (setjmp(g_jump) == 0) {
    D_LEX *lexer = DutLexCreate(D_LEX_ATT_STRING, text, D_LEX_ATT_ERROR_FUNC, recordingJump, D_LEX_ATT_WHITE_SPACE,
                                white_space, 0);
    while (DutLexGetToken(lexer) != D_TOK_EOF) {
      out.push_back({DutLexGetToken(lexer), DutLexGetTokenText(lexer)});
      // Accepting whatever is current reads the next token.
      DutLexAccept(lexer, DutLexGetToken(lexer));
    }
    DutLexDestroy(lexer);
  }
  return out;
}

D_LEX *over(const char *text, D_LEX_ERROR_FUNC func = recordingJump) {
  g_error.clear();
  return DutLexCreate(D_LEX_ATT_STRING, text, D_LEX_ATT_ERROR_FUNC, func, 0);
}

// ---- Tokens -------------------------------------------------------------------

TEST(LexTokens, KindsAndLongestMatches) {
  const std::string longest_id(63, 'a');
  const std::string longest_pattern = "ab?" + std::string(60, 'c');
  // Far longer than the initial buffer, which grows.
  const std::string long_string = "\"" + std::string(20000, 'q') + "\"";
  // The operators in the order of their kinds, D_TOK_PLUS down to D_TOK_BAR.
  std::istringstream operators("+ ++ += - -- -= * *= / /= = <> < <= > >= := ( ) [ ] { } : . , ; ! $ ^ @ # % & ~ |");
  Tokens by_kind;
  for (std::string op; operators >> op;) by_kind.push_back({D_TOK_PLUS - static_cast<D_INT4>(by_kind.size()), op});
  const struct { std::string text; int white_space; Tokens expected; } cases[] = {
      {"a+=b", 0, {{D_TOK_IDENTIFIER, "a"}, {D_TOK_PLUS_EQUALS, "+="}, {0, "b"}}},
      {"a+ =b", 0, {{0, "a"}, {D_TOK_PLUS, "+"}, {D_TOK_EQUALS, "="}, {0, "b"}}},
      {"a+ =b", 1, {{0, "a"}, {D_TOK_PLUS, "+"}, {D_TOK_WHITE_SPACE, " "}, {D_TOK_EQUALS, "="}, {0, "b"}}},
      {operators.str(), 0, by_kind},
      {"<>=:=\\`", 0,
       {{D_TOK_NOT_EQUAL, "<>"}, {D_TOK_EQUALS, "="}, {D_TOK_ASSIGN, ":="}, {D_TOK_BACKSLASH, "\\"},
        {D_TOK_ERROR, "`"}}},
      {"\"a\\tb\\\"c\" x", 0, {{D_TOK_STRING, "\"a\\tb\\\"c\""}, {0, "x"}}},
      // A point starts a number only before a digit; an e without an
      // exponent is not part of the number.
      {".5 . x 1.25e2 3e 7.", 0, {{D_TOK_UNSIGNED_NUMBER, ".5"}, {D_TOK_DOT, "."}, {0, "x"},
                                  {D_TOK_UNSIGNED_NUMBER, "1.25e2"}, {D_TOK_UNSIGNED_NUMBER, "3"}, {0, "e"},
                                  {D_TOK_UNSIGNED_NUMBER, "7."}}},
      {"_a%b9 x", 0, {{0, "_a%b9"}, {0, "x"}}},
      {longest_id, 0, {{0, longest_id}}},
      {"ab?d ?x?", 0, {{D_TOK_PATTERN, "ab?d"}, {D_TOK_PATTERN, "?x?"}}},
      {longest_pattern, 0, {{D_TOK_PATTERN, longest_pattern}}},
      {long_string, 0, {{D_TOK_STRING, long_string}}},
      {"a?b?c?d", 0, {{D_TOK_ERROR, "a?b?c?"}, {0, "d"}}},  // a third wildcard ends the token as an error
      {"a (* c *) b /* d */ c // e\nd", 0, {{0, "a"}, {0, "b"}, {0, "c"}, {0, "d"}}},
      {"a(*x*)b", 1, {{0, "a"}, {D_TOK_WHITE_SPACE, "(*x*)"}, {0, "b"}}},
      // Runs of blanks are read in one step.
      {"a \t \n\v\f\r\n  b", 1, {{0, "a"}, {D_TOK_WHITE_SPACE, " \t \n\v\f\r\n  "}, {0, "b"}}},
  };
  for (const auto &c : cases) {
    EXPECT_EQ(tokens(c.text.c_str(), c.white_space), c.expected) << c.text << " white space " << c.white_space;
    EXPECT_EQ(g_error, "") << c.text;
  }
}

TEST(LexTokens, EscapesNumbersAndGobbledWhiteSpace) {
  OutputCapture capture;
  D_LEX *lexer = over("\"\\q\"");
  EXPECT_EQ(capture.Take(), "WARNING: unknown escape sequence \\q at line 1 of file <<NONE>>\n");
  EXPECT_STREQ(D_GLEX_VALUE_STR(lexer), "q");
  DutLexDestroy(lexer);

  // Whole numbers short enough to be exact, and the longer or fractional
  // ones that must round as strtod does.
  for (const char *text : {"0", "007", "9", "123456789012345", "999999999999999", "1234567890123456", "1.25e2", "0.1",
                           "9007199254740993", "12345678901234567890", "2.5e3", "1e400", "00000000000000000001"}) {
    lexer = over(text);
    EXPECT_EQ(DutLexGetToken(lexer), D_TOK_UNSIGNED_NUMBER) << text;
    EXPECT_EQ(D_GLEX_VALUE(lexer), std::strtod(text, nullptr)) << text;
    DutLexDestroy(lexer);
  }
  // Gobbling white space reads up to the next other token.
  lexer = DutLexCreate(D_LEX_ATT_STRING, "   x", D_LEX_ATT_WHITE_SPACE, 1, 0);
  EXPECT_EQ(DutLexGetToken(lexer), D_TOK_WHITE_SPACE);
  DutLexGobbleWhitespace(lexer);
  EXPECT_EQ(DutLexGetToken(lexer), D_TOK_IDENTIFIER);
  DutLexDestroy(lexer);
}

// ---- Lexer records ----------------------------------------------------------------

TEST(LexRecords, FreshAfterDestroySeveralAtOnceAndRepeatedAttributes) {
  // The first lexer ends with every field moved away from its start.
  D_LEX *first = DutLexCreate(D_LEX_ATT_STRING, "alpha \"quoted\"\n\n 12", D_LEX_ATT_ERROR_FUNC, recordingReturn,
                              D_LEX_ATT_ERROR_ARG, &g_error, D_LEX_ATT_WHITE_SPACE, 1, D_LEX_ATT_FLAG2, 1, 0);
  while (DutLexGetToken(first) != D_TOK_EOF) DutLexAccept(first, DutLexGetToken(first));
  EXPECT_EQ(D_GLEX_LINE_NUM(first), 3);
  DutLexDestroy(first);
  D_LEX *b = DutLexCreate(D_LEX_ATT_STRING, "beta", 0);
  EXPECT_TRUE(DutLexGetToken(b) == D_TOK_IDENTIFIER && std::string(DutLexGetTokenText(b)) == "beta");
  EXPECT_TRUE(D_GLEX_TOKEN_SIZE(b) == 4 && D_GLEX_LINE_NUM(b) == 1 && D_GLEX_WHITE_SPACE_FLAG(b) == 0);
  EXPECT_TRUE(b->flag2 == 0 && b->error_func == nullptr && b->error_arg == nullptr && b->newline_before == 0);
  EXPECT_TRUE(*DutLexGetText(b) == '\0' && *D_GLEX_VALUE_STR(b) == '\0' && DutLexGetValue(b) == 0.0);

  // Lexers alive at the same time never share buffers.
  D_LEX *c = over("third");
  EXPECT_NE(D_GLEX_TOKEN_STR(c), D_GLEX_TOKEN_STR(b));
  EXPECT_STREQ(DutLexGetTokenText(b), "beta") << "creating a lexer must not touch a live one";
  EXPECT_STREQ(DutLexGetTokenText(c), "third");
  DutLexDestroy(b);
  DutLexDestroy(c);

  // Attributes given twice keep the first; unknown ones are named.
  OutputCapture capture;
  D_LEX *lexer = DutLexCreate(D_LEX_ATT_STRING, "a", D_LEX_ATT_STRING, "b", D_LEX_ATT_ERROR_FUNC, recordingReturn,
                              D_LEX_ATT_ERROR_FUNC, recordingJump, 99, 0);
  EXPECT_EQ(capture.Take(),
            "WARNING: DutLexCreate: lexer already has input string.\n"
            "WARNING: DutLexCreate: lexer already has error func.\n"
            "WARNING: DutLexCreate: unknown lex att 99\n");
  EXPECT_STREQ(DutLexGetTokenText(lexer), "a");
  DutLexDestroy(lexer);
}

// ---- Reserved words and token texts -------------------------------------------

TEST(LexReserved, WordsAnyCaseTokenTextsAndTheirErrors) {
  // Reserved words stay for the process: a repeated run has none to add.
  static int runs = 0;
  if (runs++ > 0) GTEST_SKIP() << "reserved words were added by an earlier run";
  EXPECT_EQ(DutLexPrintReservedWords(), D_FALSE);
  ASSERT_EQ(DutLexAddReservedWord("Begin", 7), D_TRUE);
  EXPECT_FAILS(DutLexAddReservedWord("BEGIN", 8), D_FALSE, D_ERR_ALREADY_EXISTS);
  EXPECT_FAILS(DutLexAddReservedWord("zero", 0), D_FALSE, D_ERR_VAL_TOO_SMALL);
  EXPECT_FAILS(DutLexAddReservedWord(nullptr, 3), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_EQ(tokens("bEgIn x"), (Tokens{{7, "bEgIn"}, {0, "x"}}));
  D_LEX *lexer = over("BEGIN");
  EXPECT_TRUE(DutLexAcceptId(lexer) && std::string(DutLexGetText(lexer)) == "BEGIN") << "reserved yet an identifier";
  DutLexDestroy(lexer);

  char buffer[64];
  for (const auto &[kind, text] : std::vector<std::pair<D_INT4, const char *>>{
           {7, "begin"}, {D_TOK_IDENTIFIER, "<identifier>"}, {D_TOK_BAR, "|"}, {D_TOK_BACKSLASH, "\\"},
           {D_TOK_ERROR, "<error>"}}) {
    EXPECT_STREQ(DutLexTokenToString(kind, buffer), text) << kind;
  }
  EXPECT_FAILS(DutLexTokenToString(D_TOK_BAR, nullptr), nullptr, D_ERR_NULL_PTR);
  OutputCapture capture;
  EXPECT_EQ(DutLexPrintReservedWords(), D_TRUE);
  EXPECT_EQ(capture.Take(), "Name begin, value 7\n");
  EXPECT_STREQ(DutLexTokenToString(5, buffer), "<UNKNOWN TOKEN 5>");
  EXPECT_EQ(capture.Take(), "WARNING: DutLexTokenToString: unknown token 5\n");
}

// ---- Accept functions -------------------------------------------------------------

// The typed accepts' values are the C API test's. A row gives the text,
// what reads it, the token left current after an accept (file names run up
// to white space or a comma, and the white-space flag is restored
// afterwards) and the accepted text, or no token and the error message.
// Rows without a reader lex the whole text through the long-jump function.
TEST(LexAccept, ValuesWhereReadingStopsAndErrors) {
  using Accept = D_BOOL (*)(D_LEX *);
  const Accept string = [](D_LEX *l) { return DutLexAccept(l, D_TOK_STRING); };
  // A refused typed accept gives 0, whatever its type.
  const Accept unsigned_int = [](D_LEX *l) { return static_cast<D_BOOL>(DutLexAcceptUnsignedInt(l)); };
  // A file name is the value string too.
  const Accept file_name = [](D_LEX *l) {
    return static_cast<D_BOOL>(DutLexAcceptFileName(l) && std::strcmp(DutLexGetText(l), D_GLEX_VALUE_STR(l)) == 0);
  };
  // Skipping to the end of the line; when the next line is already
  // current, nothing is skipped.
  const Accept skip = [](D_LEX *l) {
    DutLexAcceptId(l);
    DutLexSkipToEoln(l);
    return D_TRUE;
  };
  const std::string too_long(64, 'b');
  const struct { std::string text; Accept accept; const char *next; std::string result; } cases[] = {
      {"\"a\\tb\\\"c\\\\\" next", string, "next", "a\tb\"c\\"},
      {"\"" + std::string(20000, 'q') + "\" x", string, "x", std::string(20000, 'q')},
      {"/tmp/my-file.2.dat next,d", file_name, "next", "/tmp/my-file.2.dat"},
      {"next,d", file_name, ",", "next"},
      {"a.b.c alias", DutLexAcceptSlot, "alias", "a.b.c"},
      {"alias x", DutLexAcceptSlotOrAlias, "x", "alias"},
      {"ab?d x", DutLexAcceptPattern, "x", "ab?d"},
      {"one two three\nfour", skip, "four", "one"},
      {"a\nb", skip, "b", "a"},
      {"one two", skip, "", "one"},
      {"42", string, nullptr, "ERROR: Expected: <string constant>,  Found: <unsigned numeric constant> <42>"},
      {"42", DutLexAcceptId, nullptr, "ERROR: Expected: <identifier>,  Found: <unsigned numeric constant> <42>"},
      {"42", DutLexAcceptPattern, nullptr, "ERROR: Expected: <identifier>,  Found: <unsigned numeric constant> <42>"},
      {"-3", unsigned_int, nullptr, "ERROR: Expected: <unsigned numeric constant>,  Found: - <->"},
      {"9.5", unsigned_int, nullptr, "ERROR: Expected: signed integer,  Found: signed real <9.5>"},
      {"yes", DutLexAcceptBool, nullptr, "ERROR: Expected: boolean constant,  Found: <identifier> <yes>"},
      {"1", DutLexAcceptBool, nullptr, "ERROR: Expected: boolean constant,  Found: <identifier> <1>"},
      {";", DutLexAcceptFileName, nullptr, "ERROR: Expected: flexible string,  Found: ; <;>"},
      {"42", DutLexAcceptSlot, nullptr, "ERROR: Expected: slot name,  Found: <unsigned numeric constant> <42>"},
      {".a.b", DutLexAcceptSlot, nullptr, "ERROR: slot name <.a.b> cannot start with a dot"},
      {"a.b.", DutLexAcceptSlot, nullptr, "ERROR: slot name <a.b.> cannot end with a dot"},
      {"abc", DutLexAcceptSlot, nullptr, "ERROR: slot name <abc> does not contain any dots"},
      {too_long, nullptr, nullptr, "ERROR: utLexIdOrPattern\nIdentifier Too Long\n<" + too_long + ">"},
      {"ab??", nullptr, nullptr, "ERROR: Pattern <ab?" "?> Has Two Adjacent Question Marks\n"},
      {"\"line\nbreak\"", nullptr, nullptr, "ERROR: Found newline in string constant \"line"},
      {"x\n(* one\n two (* three *) *)", nullptr, nullptr,
       "ERROR: Start Of Nested Comment\nComment began on line 2, nesting occured on line 3"},
      {"x /* never\n closed", nullptr, nullptr,
       "ERROR: No Closing Comment */ Found\nFor Comment Started on Line Number 1"},
      {"(* never", nullptr, nullptr, "ERROR: No Closing Comment *) Found\nFor Comment Started on Line Number 1"},
  };
  for (const auto &c : cases) {
    if (c.accept == nullptr) {
      tokens(c.text.c_str());
      EXPECT_EQ(g_error, c.result) << c.text;
      continue;
    }
    D_LEX *lexer = over(c.text.c_str(), recordingReturn);
    const D_BOOL accepted = c.accept(lexer);
    EXPECT_EQ(g_error, c.next ? "" : c.result) << c.text;
    // A refusal destroys the lexer: it is not touched again.
    EXPECT_EQ(accepted, c.next ? D_TRUE : D_FALSE) << c.text;
    if (c.next == nullptr || !accepted) continue;
    EXPECT_EQ(DutLexGetText(lexer), c.result) << c.text;
    EXPECT_TRUE(std::string(DutLexGetTokenText(lexer)) == c.next && D_GLEX_WHITE_SPACE_FLAG(lexer) == 0) << c.text;
    DutLexDestroy(lexer);
  }
}

// ---- Sources and creation ---------------------------------------------------------

TEST(LexFile, BlocksPositionAndTheLongJumpFunction) {
  vqtest::TempDir dir("vq_lex");
  auto write = [&](const char *name, const std::string &text) {
    vqtest::WriteFile(dir.file(name), text);
    return dir.file(name);
  };
  // Identifiers straddle the 512-byte block boundary.
  std::string text;
  for (int i = 0; i < 300; ++i) text += "word" + std::to_string(i) + (i % 10 == 9 ? "\n" : " ");
  // The blocks come through the application's read function (one call per
  // block, and one that finds the end).
  static std::size_t blocks;
  blocks = 0;
  DutSetFileReadFunc([](void *b, std::size_t s, std::size_t n, FILE *f) { return ++blocks, std::fread(b, s, n, f); });
  D_LEX *lexer = DutLexCreate(D_LEX_ATT_FILE_NAME, write("input.txt", text).c_str(), 0);
  for (int i = 0; i < 300 && DutLexGetToken(lexer) == D_TOK_IDENTIFIER; ++i) {
    ASSERT_EQ(std::string(DutLexGetTokenText(lexer)), "word" + std::to_string(i));
    DutLexAcceptId(lexer);
  }
  DutSetFileReadFunc(nullptr);
  EXPECT_TRUE(DutLexGetToken(lexer) == D_TOK_EOF && D_GLEX_LINE_NUM(lexer) == 31 &&
              blocks == (text.size() + D_LEX_BLOCK_SIZE - 1) / D_LEX_BLOCK_SIZE + 1);
  DutLexDestroy(lexer);
  // The position counts only consumed characters: the current token def
  // was read up to the blank after it. (One line: a text-mode stream on
  // Windows cannot tell positions in a file of bare newlines.)
  lexer = DutLexCreate(D_LEX_ATT_FILE_NAME, write("pos.txt", "abc def ghi").c_str(), 0);
  DutLexAcceptId(lexer);
  EXPECT_EQ(DutLexGetCurrentPositionInFile(lexer), 7);
  DutLexDestroy(lexer);

  // The long-jump error function reports the file and the line.
  const std::string file = write("bad.txt", "ok\n\"broken");
  OutputCapture capture;
  jmp_buf jb;
  if (setjmp(jb) == 0) {
    lexer = DutLexCreate(D_LEX_ATT_FILE_NAME, file.c_str(), D_LEX_ATT_ERROR_FUNC, DutLexLongjmpErrorFunc,
                         D_LEX_ATT_ERROR_ARG, &jb, 0);
    DutLexAcceptId(lexer);  // reads the broken string as the next token
    ADD_FAILURE() << "the error function returned";
  }
  EXPECT_EQ(capture.Take(), "ERROR: Found EOF in string constant \"broken\nFile: " + file + ", Line: 2\n");
}

// ---- Token callbacks -----------------------------------------------------------------

void countCall(void *, void *data, D_WORD arg) {
  EXPECT_NE(static_cast<D_LEX_TOKEN_CB_DATA *>(data)->cb, nullptr);
  ++*reinterpret_cast<int *>(arg);
}

TEST(LexDeathTest, FatalPaths) {
  char buffer[64];
  VQTEST_EXPECT_ASSERTION(DutLexTokenToString(-44, buffer), "token >= D_TOK_ERROR");
  VQTEST_EXPECT_FATAL(DutLexCreate(D_LEX_ATT_STRING, "\"x", 0), "Lexer Error at line 1 \\(no file name\\)");
  VQTEST_EXPECT_FATAL(DutLexCreate(D_LEX_ATT_FILE_NAME, "/nonexistent/vq/lexer/input", 0),
               "DutLexCreate: cannot open file </nonexistent/vq/lexer/input> for reading.");
  // A global token callback list alone fails the merge assertion.
  static int global = 0;
  VQTEST_EXPECT_ASSERTION(
      {
        DutLexTokenCbCreate(nullptr, countCall, reinterpret_cast<D_WORD>(&global));
        DutLexCreate(D_LEX_ATT_STRING, " a", 0);
      },
      "objlist");
}

// A lexer's own list runs after white space until a global list exists;
// with both, only the global one runs. A global list stays for the process
// (and fails lexers without a list of their own), so it is made in a child.
TEST(LexTokenCallbacks, OwnListRunsAfterWhiteSpaceUntilAGlobalListExists) {
  EXPECT_FAILS(DutLexTokenCbLookup(nullptr, countCall, 0), nullptr, D_ERR_DOESNT_EXIST);
  int own = 0, global = 0;
  D_LEX *lexer = over("a b c");
  ASSERT_NE(DutLexTokenCbCreate(lexer, countCall, reinterpret_cast<D_WORD>(&own)), nullptr);
  EXPECT_NE(DutLexTokenCbLookup(lexer, countCall, reinterpret_cast<D_WORD>(&own)), nullptr);
  DutLexAcceptId(lexer);  // skips the blank
  EXPECT_EQ(own, 1);
  EXPECT_EXIT(
      {
        DutLexTokenCbCreate(nullptr, countCall, reinterpret_cast<D_WORD>(&global));
        DutLexAcceptId(lexer);
        std::exit(global == 1 && own == 1 ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
  DutLexDestroy(lexer);
}

}  // namespace

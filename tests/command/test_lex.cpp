// The lexer: token kinds and their longest matches, identifiers, patterns,
// numbers, strings, comments, accept functions, error functions, token
// callbacks and reserved words.
#include <gtest/gtest.h>

#include <csetjmp>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "vqutil/lex.h"
#include "vqutil/output.h"

namespace {

// ---- Scaffolding ------------------------------------------------------------

std::string g_error;  // the last message an error function received
jmp_buf g_jump;

void recordingJump(D_LEX *lexer, const char *format, va_list args, void *) {
  char text[1024];
  std::vsnprintf(text, sizeof text, format, args);
  g_error = text;
  DutLexDestroy(lexer);
  std::longjmp(g_jump, D_LEX_JUMP_VALUE);
}

void recordingReturn(D_LEX *, const char *format, va_list args, void *) {
  char text[1024];
  std::vsnprintf(text, sizeof text, format, args);
  g_error = text;
}

std::string &captured() {
  static std::string s;
  return s;
}

int captureSink(const char *format, va_list args) {
  char text[2048];
  int n = std::vsnprintf(text, sizeof text, format, args);
  captured() += text;
  return n;
}

struct Token {
  D_INT4 kind;
  std::string text;
  bool operator==(const Token &o) const { return kind == o.kind && text == o.text; }
};

void PrintTo(const Token &t, std::ostream *os) { *os << "{" << t.kind << ", \"" << t.text << "\"}"; }

// Every token of text up to the end (or an error, recorded in g_error).
std::vector<Token> tokens(const char *text, int white_space = 0) {
  std::vector<Token> out;
  g_error.clear();
  D_LEX *volatile lexer = nullptr;
  if (setjmp(g_jump) == 0) {
    lexer = DutLexCreate(D_LEX_ATT_STRING, text, D_LEX_ATT_ERROR_FUNC, recordingJump, D_LEX_ATT_WHITE_SPACE,
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

TEST(LexTokens, LongestMatchAndWhiteSpace) {
  EXPECT_EQ(tokens("a+=b"), (std::vector<Token>{{D_TOK_IDENTIFIER, "a"}, {D_TOK_PLUS_EQUALS, "+="}, {0, "b"}}));
  EXPECT_EQ(tokens("a+ =b"), (std::vector<Token>{{0, "a"}, {D_TOK_PLUS, "+"}, {D_TOK_EQUALS, "="}, {0, "b"}}));
  EXPECT_EQ(tokens("a+ =b", 1), (std::vector<Token>{{0, "a"},
                                                    {D_TOK_PLUS, "+"},
                                                    {D_TOK_WHITE_SPACE, " "},
                                                    {D_TOK_EQUALS, "="},
                                                    {0, "b"}}));
}

TEST(LexTokens, EveryOperator) {
  const std::vector<Token> expected = {
      {D_TOK_PLUS_PLUS, "++"},  {D_TOK_MINUS_MINUS, "--"}, {D_TOK_MINUS_EQUALS, "-="},  {D_TOK_MINUS, "-"},
      {D_TOK_STAR_EQUALS, "*="}, {D_TOK_STAR, "*"},         {D_TOK_SLASH_EQUALS, "/="}, {D_TOK_SLASH, "/"},
      {D_TOK_NOT_EQUAL, "<>"},   {D_TOK_LESS_EQUAL, "<="},  {D_TOK_LESS, "<"},          {D_TOK_GREATER_EQUAL, ">="},
      {D_TOK_GREATER, ">"},      {D_TOK_ASSIGN, ":="},      {D_TOK_COLON, ":"},         {D_TOK_LPAREN, "("},
      {D_TOK_RPAREN, ")"},       {D_TOK_LBRACKET, "["},     {D_TOK_RBRACKET, "]"},      {D_TOK_LBRACE, "{"},
      {D_TOK_RBRACE, "}"},       {D_TOK_COMMA, ","},        {D_TOK_SEMICOLON, ";"},     {D_TOK_BANG, "!"},
      {D_TOK_DOLLAR, "$"},       {D_TOK_CARET, "^"},        {D_TOK_AT, "@"},            {D_TOK_HASH, "#"},
      {D_TOK_PERCENT, "%"},      {D_TOK_AMPERSAND, "&"},    {D_TOK_TILDE, "~"},         {D_TOK_BAR, "|"},
      {D_TOK_BACKSLASH, "\\"},   {D_TOK_ERROR, "`"}};
  EXPECT_EQ(tokens("++ -- -= - *= * /= / <> <= < >= > := : ( ) [ ] { } , ; ! $ ^ @ # % & ~ | \\ `"), expected);
}

TEST(LexTokens, PointStartsANumberOnlyBeforeADigit) {
  std::vector<Token> t = tokens(".5 . x 1.25e2 3e 7.");
  ASSERT_EQ(t.size(), 7u);
  EXPECT_EQ(t[0], (Token{D_TOK_UNSIGNED_NUMBER, ".5"}));
  EXPECT_EQ(t[1], (Token{D_TOK_DOT, "."}));
  EXPECT_EQ(t[2], (Token{0, "x"}));
  EXPECT_EQ(t[3], (Token{D_TOK_UNSIGNED_NUMBER, "1.25e2"}));
  EXPECT_EQ(t[4], (Token{D_TOK_UNSIGNED_NUMBER, "3"})) << "an e without an exponent is not part of the number";
  EXPECT_EQ(t[5], (Token{0, "e"}));
  EXPECT_EQ(t[6], (Token{D_TOK_UNSIGNED_NUMBER, "7."}));
  D_LEX *lexer = over("1.25e2");
  EXPECT_DOUBLE_EQ(D_GLEX_VALUE(lexer), 125.0);
  DutLexDestroy(lexer);
}

TEST(LexTokens, IdentifierLengthLimit) {
  std::string ok(63, 'a');
  std::vector<Token> t = tokens(ok.c_str());
  ASSERT_EQ(t.size(), 1u);
  EXPECT_EQ(t[0].text, ok);
  std::string too_long(64, 'b');
  tokens(too_long.c_str());
  EXPECT_EQ(g_error, "ERROR: utLexIdOrPattern\nIdentifier Too Long\n<" + too_long + ">");
}

TEST(LexTokens, IdentifiersKeepPercentAndUnderscore) {
  EXPECT_EQ(tokens("_a%b9 x"), (std::vector<Token>{{0, "_a%b9"}, {0, "x"}}));
}

TEST(LexTokens, Patterns) {
  EXPECT_EQ(tokens("ab?d"), (std::vector<Token>{{D_TOK_PATTERN, "ab?d"}}));
  EXPECT_EQ(tokens("?x?"), (std::vector<Token>{{D_TOK_PATTERN, "?x?"}}));
  tokens("ab??");
  EXPECT_EQ(g_error, "ERROR: Pattern <ab?" "?> Has Two Adjacent Question Marks\n");
  std::vector<Token> t = tokens("a?b?c?d");
  ASSERT_FALSE(t.empty());
  EXPECT_EQ(t[0], (Token{D_TOK_ERROR, "a?b?c?"})) << "a third wildcard ends the token as an error";
}

TEST(LexTokens, StringsWithEscapes) {
  D_LEX *lexer = over("\"a\\tb\\\"c\\\\\" next");
  ASSERT_EQ(DutLexGetToken(lexer), D_TOK_STRING);
  EXPECT_STREQ(DutLexGetTokenText(lexer), "\"a\\tb\\\"c\\\\\"");
  EXPECT_STREQ(D_GLEX_VALUE_STR(lexer), "a\tb\"c\\");
  ASSERT_EQ(DutLexAccept(lexer, D_TOK_STRING), D_TRUE);
  EXPECT_STREQ(DutLexGetText(lexer), "a\tb\"c\\");
  EXPECT_EQ(DutLexGetToken(lexer), D_TOK_IDENTIFIER);
  DutLexDestroy(lexer);
}

TEST(LexTokens, StringErrorsAndUnknownEscapes) {
  tokens("\"open");
  EXPECT_EQ(g_error, "ERROR: Found EOF in string constant \"open");
  tokens("\"line\nbreak\"");
  EXPECT_EQ(g_error, "ERROR: Found newline in string constant \"line");
  captured().clear();
  D_OUTPUT_FUNC previous = DutGetOutputFunc();
  DutSetOutputFunc(captureSink);
  D_LEX *lexer = over("\"\\q\"");
  DutSetOutputFunc(previous);
  EXPECT_EQ(captured(), "WARNING: unknown escape sequence \\q at line 1 of file <<NONE>>\n");
  EXPECT_STREQ(D_GLEX_VALUE_STR(lexer), "q");
  DutLexDestroy(lexer);
}

TEST(LexTokens, CommentsAreWhiteSpace) {
  EXPECT_EQ(tokens("a (* c *) b /* d */ c // e\nd"),
            (std::vector<Token>{{0, "a"}, {0, "b"}, {0, "c"}, {0, "d"}}));
  std::vector<Token> t = tokens("a(*x*)b", 1);
  ASSERT_EQ(t.size(), 3u);
  EXPECT_EQ(t[1], (Token{D_TOK_WHITE_SPACE, "(*x*)"}));
}

TEST(LexTokens, NestedAndUnterminatedComments) {
  tokens("x\n(* one\n two (* three *) *)");
  EXPECT_EQ(g_error, "ERROR: Start Of Nested Comment\nComment began on line 2, nesting occured on line 3");
  tokens("x /* never\n closed");
  EXPECT_EQ(g_error, "ERROR: No Closing Comment */ Found\nFor Comment Started on Line Number 1");
  tokens("(* never");
  EXPECT_EQ(g_error, "ERROR: No Closing Comment *) Found\nFor Comment Started on Line Number 1");
}

TEST(LexTokens, LinesAreCounted) {
  D_LEX *lexer = over("a\n\nb");
  EXPECT_EQ(D_GLEX_LINE_NUM(lexer), 1);
  DutLexAcceptId(lexer);
  EXPECT_EQ(D_GLEX_LINE_NUM(lexer), 3);
  DutLexDestroy(lexer);
}

TEST(LexTokens, WhiteSpaceRunsKeepTheirTextAndLines) {
  // Runs of blanks are read in one step; newlines inside them still count.
  EXPECT_EQ(tokens("a \t \n\v\f\r\n  b", 1),
            (std::vector<Token>{{0, "a"}, {D_TOK_WHITE_SPACE, " \t \n\v\f\r\n  "}, {0, "b"}}));
  D_LEX *lexer = over("x  \n \t\n\n   y\tz");
  DutLexAcceptId(lexer);
  EXPECT_EQ(D_GLEX_LINE_NUM(lexer), 4);
  EXPECT_STREQ(DutLexGetTokenText(lexer), "y");
  DutLexAcceptId(lexer);
  EXPECT_EQ(D_GLEX_LINE_NUM(lexer), 4);
  EXPECT_STREQ(DutLexGetTokenText(lexer), "z");
  DutLexDestroy(lexer);
}

TEST(LexTokens, WildcardsInsideLongNamesAtTheLimit) {
  std::string ok = "ab?" + std::string(60, 'c');  // 63 characters
  std::vector<Token> t = tokens(ok.c_str());
  ASSERT_EQ(t.size(), 1u);
  EXPECT_EQ(t[0], (Token{D_TOK_PATTERN, ok}));
  std::string too_long = ok + "?";
  tokens(too_long.c_str());
  EXPECT_EQ(g_error, "ERROR: utLexIdOrPattern\nIdentifier Too Long\n<" + too_long + ">");
}

TEST(LexTokens, NumberValuesMatchTheCLibrary) {
  // Whole numbers short enough to be exact, and the longer or fractional
  // ones that must round as strtod does.
  for (const char *text : {"0", "007", "9", "123456789012345", "999999999999999", "1234567890123456",
                           "9007199254740993", "12345678901234567890", "0.1", "2.5e3", "1e400", "00000000000000000001"}) {
    D_LEX *lexer = over(text);
    ASSERT_EQ(DutLexGetToken(lexer), D_TOK_UNSIGNED_NUMBER) << text;
    EXPECT_EQ(D_GLEX_VALUE(lexer), std::strtod(text, nullptr)) << text;
    DutLexDestroy(lexer);
  }
}

// ---- Lexer records ----------------------------------------------------------------

TEST(LexRecords, ANewLexerStartsFreshAfterOneWasDestroyed) {
  // The first lexer ends with every field moved away from its start.
  D_LEX *first = DutLexCreate(D_LEX_ATT_STRING, "alpha \"quoted\"\n\n 12", D_LEX_ATT_ERROR_FUNC, recordingReturn,
                              D_LEX_ATT_ERROR_ARG, &g_error, D_LEX_ATT_WHITE_SPACE, 1, D_LEX_ATT_FLAG2, 1, 0);
  while (DutLexGetToken(first) != D_TOK_EOF) DutLexAccept(first, DutLexGetToken(first));
  EXPECT_EQ(D_GLEX_LINE_NUM(first), 3);
  DutLexDestroy(first);

  D_LEX *second = DutLexCreate(D_LEX_ATT_STRING, "beta", 0);
  EXPECT_EQ(DutLexGetToken(second), D_TOK_IDENTIFIER);
  EXPECT_STREQ(DutLexGetTokenText(second), "beta");
  EXPECT_EQ(D_GLEX_TOKEN_SIZE(second), 4);
  EXPECT_EQ(D_GLEX_LINE_NUM(second), 1);
  EXPECT_EQ(D_GLEX_WHITE_SPACE_FLAG(second), 0);
  EXPECT_EQ(second->flag2, 0);
  EXPECT_EQ(second->error_func, nullptr);
  EXPECT_EQ(second->error_arg, nullptr);
  EXPECT_EQ(second->input_file, nullptr);
  EXPECT_EQ(D_GLEX_INPUT_FILE_NAME(second), nullptr);
  EXPECT_EQ(second->token_cb_list, nullptr);
  EXPECT_EQ(second->newline_before, 0);
  EXPECT_STREQ(DutLexGetText(second), "") << "nothing accepted yet";
  EXPECT_STREQ(D_GLEX_VALUE_STR(second), "");
  EXPECT_EQ(DutLexGetValue(second), 0.0);
  EXPECT_GE(D_GLEX_MAX_TOKEN_SIZE(second), D_LEX_INITIAL_TOKEN_SIZE);
  DutLexDestroy(second);
}

TEST(LexRecords, LongTokensAndSeveralLexersAtOnce) {
  // A token far longer than the initial buffer grows it; lexers alive at
  // the same time never share buffers.
  std::string long_text = "\"" + std::string(20000, 'q') + "\"";
  D_LEX *a = over(long_text.c_str());
  D_LEX *b = over("short words");
  EXPECT_EQ(D_GLEX_TOKEN_SIZE(a), 20002);
  EXPECT_EQ(std::string(D_GLEX_VALUE_STR(a)), std::string(20000, 'q'));
  EXPECT_NE(D_GLEX_TOKEN_STR(a), D_GLEX_TOKEN_STR(b));
  EXPECT_STREQ(DutLexGetTokenText(b), "short");
  DutLexDestroy(a);
  D_LEX *c = over("third");
  EXPECT_STREQ(DutLexGetTokenText(b), "short") << "creating a lexer must not touch a live one";
  EXPECT_STREQ(DutLexGetTokenText(c), "third");
  DutLexDestroy(b);
  DutLexDestroy(c);
}

// ---- Reserved words -------------------------------------------------------------

TEST(LexReserved, WordsAnyCaseAndTheirErrors) {
  EXPECT_EQ(DutLexPrintReservedWords(), D_FALSE);
  ASSERT_EQ(DutLexAddReservedWord("Begin", 7), D_TRUE);
  EXPECT_EQ(DutLexAddReservedWord("BEGIN", 8), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_ALREADY_EXISTS);
  EXPECT_EQ(DutLexAddReservedWord("zero", 0), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_TOO_SMALL);
  EXPECT_EQ(DutLexAddReservedWord(nullptr, 3), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  EXPECT_EQ(tokens("bEgIn x"), (std::vector<Token>{{7, "bEgIn"}, {0, "x"}}));
  char buffer[64];
  EXPECT_STREQ(DutLexTokenToString(7, buffer), "begin");
  D_LEX *lexer = over("BEGIN");
  EXPECT_EQ(DutLexAcceptId(lexer), D_TRUE) << "a reserved word is accepted as an identifier";
  EXPECT_STREQ(DutLexGetText(lexer), "BEGIN");
  DutLexDestroy(lexer);
  captured().clear();
  D_OUTPUT_FUNC previous = DutGetOutputFunc();
  DutSetOutputFunc(captureSink);
  EXPECT_EQ(DutLexPrintReservedWords(), D_TRUE);
  DutSetOutputFunc(previous);
  EXPECT_EQ(captured(), "Name begin, value 7\n");
}

TEST(LexReserved, TokenTexts) {
  char buffer[64];
  EXPECT_STREQ(DutLexTokenToString(D_TOK_IDENTIFIER, buffer), "<identifier>");
  EXPECT_STREQ(DutLexTokenToString(D_TOK_BAR, buffer), "|");
  EXPECT_STREQ(DutLexTokenToString(D_TOK_BACKSLASH, buffer), "\\");
  EXPECT_STREQ(DutLexTokenToString(D_TOK_ERROR, buffer), "<error>");
  captured().clear();
  D_OUTPUT_FUNC previous = DutGetOutputFunc();
  DutSetOutputFunc(captureSink);
  EXPECT_STREQ(DutLexTokenToString(5, buffer), "<UNKNOWN TOKEN 5>");
  DutSetOutputFunc(previous);
  EXPECT_EQ(captured(), "WARNING: DutLexTokenToString: unknown token 5\n");
}

TEST(LexReservedDeathTest, KindBelowErrorIsAnAssertion) {
  char buffer[64];
  EXPECT_DEATH(
      {
        setenv("VQ_FATAL_ERROR_ABORT", "1", 1);
        DutSetFatalErrorFile(stderr);
        DutLexTokenToString(-44, buffer);
      },
      "Assertion <token >= D_TOK_ERROR> failed");
}

// ---- Accept functions -------------------------------------------------------------

TEST(LexAccept, MismatchMessage) {
  D_LEX *lexer = over("42", recordingReturn);
  EXPECT_EQ(DutLexAccept(lexer, D_TOK_STRING), D_FALSE) << "the error function returned";
  EXPECT_EQ(g_error, "ERROR: Expected: <string constant>,  Found: <unsigned numeric constant> <42>");
  lexer = over("42", recordingReturn);
  EXPECT_EQ(DutLexAcceptId(lexer), D_FALSE);
  EXPECT_EQ(g_error, "ERROR: Expected: <identifier>,  Found: <unsigned numeric constant> <42>");
}

TEST(LexAccept, SignedNumbers) {
  D_LEX *lexer = over("-2.5 +7 3.0 -4 9.5 12");
  D_REAL8 r = 0;
  D_INT4 i = 0;
  D_UINT4 u = 0;
  ASSERT_EQ(DutLexAcceptSignedReal(lexer, &r), D_TRUE);
  EXPECT_EQ(r, -2.5);
  EXPECT_EQ(DutLexGetValue(lexer), -2.5);
  ASSERT_EQ(DutLexAcceptSignedInt(lexer, &i), D_TRUE);
  EXPECT_EQ(i, 7);
  ASSERT_EQ(DutLexAcceptSignedInt(lexer, &i), D_TRUE);
  EXPECT_EQ(i, 3) << "a zero fraction is a whole number";
  ASSERT_EQ(DutLexAcceptSignedInt(lexer, &i), D_TRUE);
  EXPECT_EQ(i, -4);
  if (setjmp(g_jump) == 0) {
    DutLexAcceptUnsignedInt(lexer, &u);
    FAIL() << "9.5 is not a whole number";
  }
  EXPECT_EQ(g_error, "ERROR: Expected: signed integer,  Found: signed real <9.5>");
}

TEST(LexAccept, UnsignedRefusesASign) {
  D_LEX *lexer = over("-3", recordingReturn);
  D_UINT4 u = 0;
  EXPECT_EQ(DutLexAcceptUnsignedInt(lexer, &u), D_FALSE);
  EXPECT_EQ(g_error, "ERROR: Expected: <unsigned numeric constant>,  Found: - <->");
}

TEST(LexAccept, Booleans) {
  D_LEX *lexer = over("TRUE false yes", recordingReturn);
  D_BOOL b = -1;
  ASSERT_EQ(DutLexAcceptBool(lexer, &b), D_TRUE);
  EXPECT_EQ(b, 1);
  ASSERT_EQ(DutLexAcceptBool(lexer, &b), D_TRUE);
  EXPECT_EQ(b, 0);
  EXPECT_EQ(DutLexAcceptBool(lexer, &b), D_FALSE);
  EXPECT_EQ(g_error, "ERROR: Expected: boolean constant,  Found: <identifier> <yes>");
}

TEST(LexAccept, FileNamesRunUpToWhiteSpace) {
  D_LEX *lexer = over("/tmp/my-file.2.dat next ; x");
  ASSERT_EQ(DutLexAcceptFileName(lexer), D_TRUE);
  EXPECT_STREQ(DutLexGetText(lexer), "/tmp/my-file.2.dat");
  EXPECT_STREQ(D_GLEX_VALUE_STR(lexer), "/tmp/my-file.2.dat");
  EXPECT_EQ(D_GLEX_WHITE_SPACE_FLAG(lexer), 0) << "the flag is restored";
  EXPECT_EQ(DutLexGetToken(lexer), D_TOK_IDENTIFIER);
  ASSERT_EQ(DutLexAcceptFileName(lexer), D_TRUE);
  EXPECT_STREQ(DutLexGetText(lexer), "next");
  EXPECT_EQ(DutLexGetToken(lexer), D_TOK_SEMICOLON);
  DutLexDestroy(lexer);
  lexer = over("a/b.c,d e");
  ASSERT_EQ(DutLexAcceptFileName(lexer), D_TRUE);
  EXPECT_STREQ(DutLexGetText(lexer), "a/b.c") << "a comma ends a file name (list items)";
  EXPECT_EQ(DutLexGetToken(lexer), D_TOK_COMMA);
  DutLexDestroy(lexer);
  lexer = over(";", recordingReturn);
  EXPECT_EQ(DutLexAcceptFileName(lexer), D_FALSE);
  EXPECT_EQ(g_error, "ERROR: Expected: flexible string,  Found: ; <;>");
}

TEST(LexAccept, Slots) {
  D_LEX *lexer = over("a.b.c rest");
  ASSERT_EQ(DutLexAcceptSlot(lexer), D_TRUE);
  EXPECT_STREQ(DutLexGetText(lexer), "a.b.c");
  EXPECT_STREQ(DutLexGetTokenText(lexer), "rest");
  DutLexDestroy(lexer);
  struct Case {
    const char *text;
    const char *message;
  };
  for (const Case &c : {Case{".a.b", "ERROR: slot name <.a.b> cannot start with a dot"},
                        Case{"a.b.", "ERROR: slot name <a.b.> cannot end with a dot"},
                        Case{"abc", "ERROR: slot name <abc> does not contain any dots"},
                        Case{"12", "ERROR: Expected: <identifier>,  Found: <unsigned numeric constant> <12>"}}) {
    lexer = over(c.text, recordingReturn);
    EXPECT_EQ(DutLexAcceptSlot(lexer), D_FALSE) << c.text;
    EXPECT_EQ(g_error, c.message);
  }
  lexer = over("alias");
  EXPECT_EQ(DutLexAcceptSlotOrAlias(lexer), D_TRUE);
  EXPECT_STREQ(DutLexGetText(lexer), "alias");
  DutLexDestroy(lexer);
}

TEST(LexAccept, SkipToEndOfLine) {
  D_LEX *lexer = over("one two three\nfour");
  DutLexAcceptId(lexer);
  DutLexSkipToEoln(lexer);
  EXPECT_STREQ(DutLexGetTokenText(lexer), "four");
  DutLexSkipToEoln(lexer);
  EXPECT_EQ(DutLexGetToken(lexer), D_TOK_EOF);
  DutLexDestroy(lexer);
  lexer = over("a\nb");
  DutLexAcceptId(lexer);
  DutLexSkipToEoln(lexer);
  EXPECT_STREQ(DutLexGetTokenText(lexer), "b") << "the next line is already current: nothing is skipped";
  DutLexDestroy(lexer);
}

TEST(LexAccept, GobbleNeedsTheWhiteSpaceFlag) {
  D_LEX *lexer = DutLexCreate(D_LEX_ATT_STRING, "   x", D_LEX_ATT_WHITE_SPACE, 1, 0);
  EXPECT_EQ(DutLexGetToken(lexer), D_TOK_WHITE_SPACE);
  DutLexGobbleWhitespace(lexer);
  EXPECT_EQ(DutLexGetToken(lexer), D_TOK_IDENTIFIER);
  DutLexDestroy(lexer);
}

// ---- Sources ---------------------------------------------------------------------

class LexFile : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = std::filesystem::temp_directory_path() /
           ("vq_lex_" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) + "_" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name() + std::to_string(std::rand()));
    std::filesystem::create_directories(dir_);
  }
  void TearDown() override { std::filesystem::remove_all(dir_); }
  std::filesystem::path dir_;
};

TEST_F(LexFile, TokensAcrossInputBlocks) {
  // Identifiers straddle the 512-byte block boundary.
  std::string text;
  for (int i = 0; i < 300; ++i) text += "word" + std::to_string(i) + (i % 10 == 9 ? "\n" : " ");
  std::filesystem::path file = dir_ / "input.txt";
  std::ofstream(file) << text;
  D_LEX *lexer = DutLexCreate(D_LEX_ATT_FILE_NAME, file.c_str(), 0);
  ASSERT_NE(lexer, nullptr);
  for (int i = 0; i < 300; ++i) {
    ASSERT_EQ(DutLexGetToken(lexer), D_TOK_IDENTIFIER) << i;
    ASSERT_EQ(std::string(DutLexGetTokenText(lexer)), "word" + std::to_string(i));
    DutLexAcceptId(lexer);
  }
  EXPECT_EQ(DutLexGetToken(lexer), D_TOK_EOF);
  EXPECT_EQ(D_GLEX_LINE_NUM(lexer), 31);
  DutLexDestroy(lexer);
}

TEST_F(LexFile, PositionInFileCountsOnlyConsumedCharacters) {
  std::filesystem::path file = dir_ / "pos.txt";
  std::ofstream(file) << "abc def ghi";
  D_LEX *lexer = DutLexCreate(D_LEX_ATT_FILE_NAME, file.c_str(), 0);
  DutLexAcceptId(lexer);  // current token: def, read up to the blank after it
  EXPECT_EQ(DutLexGetCurrentPositionInFile(lexer), 7);
  DutLexDestroy(lexer);
}

TEST_F(LexFile, LongJumpFunctionReportsFileAndLine) {
  std::filesystem::path file = dir_ / "bad.txt";
  std::ofstream(file) << "ok\n\"broken";
  captured().clear();
  D_OUTPUT_FUNC previous = DutGetOutputFunc();
  jmp_buf jb;
  volatile int landed = 0;
  if (setjmp(jb) == 0) {
    DutSetOutputFunc(captureSink);
    D_LEX *lexer = DutLexCreate(D_LEX_ATT_FILE_NAME, file.c_str(), D_LEX_ATT_ERROR_FUNC, DutLexLongjmpErrorFunc,
                                D_LEX_ATT_ERROR_ARG, &jb, 0);
    DutLexAcceptId(lexer);  // reads the broken string as the next token
  } else {
    landed = 1;
  }
  DutSetOutputFunc(previous);
  EXPECT_EQ(landed, 1);
  EXPECT_EQ(captured(), "ERROR: Found EOF in string constant \"broken\nFile: " + file.string() + ", Line: 2\n");
}

TEST(LexCreate, RedeclarationWarnings) {
  captured().clear();
  D_OUTPUT_FUNC previous = DutGetOutputFunc();
  DutSetOutputFunc(captureSink);
  D_LEX *lexer = DutLexCreate(D_LEX_ATT_STRING, "a", D_LEX_ATT_STRING, "b", D_LEX_ATT_ERROR_FUNC, recordingReturn,
                              D_LEX_ATT_ERROR_FUNC, recordingJump, 99, 0);
  DutSetOutputFunc(previous);
  EXPECT_EQ(captured(),
            "WARNING: DutLexCreate: lexer already has input string.\n"
            "WARNING: DutLexCreate: lexer already has error func.\n"
            "WARNING: DutLexCreate: unknown lex att 99\n");
  EXPECT_STREQ(DutLexGetTokenText(lexer), "a");
  DutLexDestroy(lexer);
}

TEST(LexCreateDeathTest, DefaultErrorFunctionIsFatal) {
  EXPECT_DEATH(
      {
        setenv("VQ_FATAL_ERROR_ABORT", "1", 1);
        DutSetFatalErrorFile(stderr);
        D_LEX *lexer = DutLexCreate(D_LEX_ATT_STRING, "\"x", 0);
        (void)lexer;
      },
      "Lexer Error at line 1 \\(no file name\\)");
}

TEST(LexCreateDeathTest, MissingFileIsFatal) {
  EXPECT_DEATH(
      {
        setenv("VQ_FATAL_ERROR_ABORT", "1", 1);
        DutSetFatalErrorFile(stderr);
        DutLexCreate(D_LEX_ATT_FILE_NAME, "/nonexistent/vq/lexer/input", 0);
      },
      "DutLexCreate: cannot open file </nonexistent/vq/lexer/input> for reading.");
}

// ---- Token callbacks -----------------------------------------------------------------

void countCall(void *, void *data, D_WORD arg) {
  EXPECT_NE(static_cast<D_LEX_TOKEN_CB_DATA *>(data)->cb, nullptr);
  ++*reinterpret_cast<int *>(arg);
}

TEST(LexTokenCallbacks, OwnListRunsAfterWhiteSpace) {
  EXPECT_EQ(DutLexTokenCbLookup(nullptr, countCall, 0), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_DOESNT_EXIST);
  int own = 0;
  D_LEX *lexer = over("a b");
  ASSERT_NE(DutLexTokenCbCreate(lexer, countCall, reinterpret_cast<D_WORD>(&own)), nullptr);
  EXPECT_NE(DutLexTokenCbLookup(lexer, countCall, reinterpret_cast<D_WORD>(&own)), nullptr);
  DutLexAcceptId(lexer);  // skips the blank
  EXPECT_EQ(own, 1);
  DutLexDestroy(lexer);
}

TEST(LexTokenCallbacks, WithBothListsOnlyTheGlobalListRuns) {
  int own = 0;
  int global = 0;
  D_LEX *lexer = over("a b");
  DutLexTokenCbCreate(lexer, countCall, reinterpret_cast<D_WORD>(&own));
  ASSERT_NE(DutLexTokenCbCreate(nullptr, countCall, reinterpret_cast<D_WORD>(&global)), nullptr);
  DutLexAcceptId(lexer);
  EXPECT_EQ(global, 1);
  EXPECT_EQ(own, 0);
  DutLexDestroy(lexer);
}

TEST(LexTokenCallbacksDeathTest, OnlyAGlobalListFailsTheMergeAssertion) {
  EXPECT_DEATH(
      {
        setenv("VQ_FATAL_ERROR_ABORT", "1", 1);
        DutSetFatalErrorFile(stderr);
        static int global = 0;
        DutLexTokenCbCreate(nullptr, countCall, reinterpret_cast<D_WORD>(&global));
        DutLexCreate(D_LEX_ATT_STRING, " a", 0);
      },
      "Assertion <objlist> failed");
}

}  // namespace

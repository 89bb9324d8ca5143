// The lexical analyser.
//
// Any syntax error goes through DutLexError, which may long-jump out of
// every frame below it (the long-jump error functions) or return after
// destroying the lexer. So no frame here holds an object with a destructor,
// and every scanning function answers whether the lexer is still alive.
#include "vqutil/lex.h"
#include "command/lex_internal.hpp"

#include <array>
#include <atomic>
#include <cctype>
#include <cmath>
#include <csetjmp>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstdint>
#include <cstring>

#include "frame/check.hpp"
#include "vqutil/error.h"
#include "vqutil/file.h"
#include "vqutil/memory.h"
#include "vqutil/output.h"
#include "vqutil/strutil.h"
#include "vqutil/thread.h"

namespace {

constexpr const char *kFile = "lex.c";
constexpr D_INT4 kReservedTableSize = 64;
constexpr D_INT4 kNoPeek = -2;
constexpr int kEof = -1;

// Texts of the built-in kinds, from 0 down to D_TOK_ERROR.
constexpr const char *kTokenTexts[] = {
    "<identifier>", "<pattern>", "+", "++", "+=", "-", "--", "-=", "*", "*=", "/", "/=", "=", "<>", "<",
    "<=", ">", ">=", ":=", "(", ")", "[", "]", "{", "}", ":", ".", ",", ";", "!", "$", "^", "@", "#", "%",
    "&", "~", "|", "<unsigned numeric constant>", "<string constant>", "\\", "<white space>", "<end of file>",
    "<error>"};
static_assert(sizeof kTokenTexts / sizeof kTokenTexts[0] == 1 - D_TOK_ERROR);

D_HASH_TABLE *utReservedWords = nullptr;
// Set once the first reserved word exists, so that scanning an identifier
// takes the process lock only in processes that declared reserved words.
std::atomic<bool> utHaveReservedWords{false};
D_LEX_ERROR_FUNC utLexErrorFunc = nullptr;
D_CB_TYPE *utLexTokenCbType = nullptr;

// ---- Characters -------------------------------------------------------------

int readRaw(D_LEX *lexer) {
  if (lexer->input_string != nullptr) {
    unsigned char c = static_cast<unsigned char>(lexer->input_string[lexer->string_pos]);
    if (c == '\0') return kEof;
    ++lexer->string_pos;
    return c;
  }
  if (lexer->input_file == nullptr) return kEof;
  if (lexer->block_pos >= lexer->block_len) {
    // The application may read the blocks itself (DutSetFileReadFunc).
    D_FILE_READ_FUNC read = DutGetFileReadFunc();
    std::size_t n = read != nullptr ? read(lexer->block, 1, sizeof lexer->block, lexer->input_file)
                                    : std::fread(lexer->block, 1, sizeof lexer->block, lexer->input_file);
    lexer->block_len = static_cast<D_INT4>(n);
    lexer->block_pos = 0;
    if (n == 0) return kEof;
  }
  return static_cast<unsigned char>(lexer->block[lexer->block_pos++]);
}

int peek(D_LEX *lexer) {
  if (lexer->peek_char == kNoPeek) lexer->peek_char = readRaw(lexer);
  return lexer->peek_char;
}

// Moves past the current character; lines count as their newline is passed.
void advance(D_LEX *lexer) {
  if (lexer->cur_char == '\n') ++lexer->line_num;
  if (lexer->peek_char != kNoPeek) {
    lexer->cur_char = lexer->peek_char;
    lexer->peek_char = kNoPeek;
  } else {
    lexer->cur_char = readRaw(lexer);
  }
}

void clearToken(D_LEX *lexer) {
  lexer->token_size = 0;
  lexer->token_str[0] = '\0';
}

void appendChar(D_LEX *lexer, int c) {
  if (lexer->token_size + 1 >= lexer->max_token_size) {
    D_INT4 doubled = lexer->max_token_size * 2;
    lexer->token_str = static_cast<char *>(
        DutReallocCheck(lexer->token_str, doubled, "lexer->token_str", kFile, __LINE__));
    lexer->max_token_size = doubled;
  }
  lexer->token_str[lexer->token_size++] = static_cast<char>(c);
  lexer->token_str[lexer->token_size] = '\0';
  VQ_ASSERT(D_GLEX_TOKEN_SIZE(lexer) <= D_GLEX_MAX_TOKEN_SIZE(lexer),
            "D_GLEX_TOKEN_SIZE(lexer) <= D_GLEX_MAX_TOKEN_SIZE(lexer)", kFile);
}

// Appends the current character to the token and moves past it.
void take(D_LEX *lexer) {
  appendChar(lexer, lexer->cur_char);
  advance(lexer);
}

// Character classes of the ASCII range, looked up rather than asked of the
// C library per character; bytes above it keep the <cctype> answers, which
// follow the host's locale.
enum : unsigned char { kIdStartClass = 1, kIdPartClass = 2, kDigitClass = 4, kSpaceClass = 8, kPlainIdClass = 16 };

constexpr std::array<unsigned char, 128> kAsciiClasses = [] {
  std::array<unsigned char, 128> t{};
  for (int c = 0; c < 128; ++c) {
    bool alpha = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    bool digit = c >= '0' && c <= '9';
    unsigned char k = 0;
    if (alpha || c == '_' || c == '?') k |= kIdStartClass;
    if (alpha || digit || c == '_' || c == '%' || c == '?') k |= kIdPartClass;
    // An identifier character that needs none of the wildcard bookkeeping.
    if (alpha || digit || c == '_' || c == '%') k |= kPlainIdClass;
    if (digit) k |= kDigitClass;
    if (c == ' ' || (c >= '\t' && c <= '\r')) k |= kSpaceClass;
    t[static_cast<std::size_t>(c)] = k;
  }
  return t;
}();

inline bool inClass(int c, unsigned char cls, int (*wide)(int)) {
  if (c < 0) return false;  // end of input
  if (c < 128) return (kAsciiClasses[static_cast<std::size_t>(c)] & cls) != 0;
  return wide(c) != 0;
}

inline bool isIdStart(int c) { return inClass(c, kIdStartClass, [](int x) { return std::isalpha(x); }); }
inline bool isIdPart(int c) { return inClass(c, kIdPartClass, [](int x) { return std::isalnum(x); }); }
inline bool isDigit(int c) { return inClass(c, kDigitClass, [](int x) { return std::isdigit(x); }); }
inline bool isSpace(int c) { return inClass(c, kSpaceClass, [](int x) { return std::isspace(x); }); }
inline bool isPlainId(int c) { return inClass(c, kPlainIdClass, [](int x) { return std::isalnum(x); }); }

// Makes room for n more characters and the terminating NUL.
void reserveToken(D_LEX *lexer, D_INT4 n) {
  D_INT4 size = lexer->max_token_size;
  while (lexer->token_size + n >= size) size *= 2;
  if (size == lexer->max_token_size) return;
  lexer->token_str = static_cast<char *>(DutReallocCheck(lexer->token_str, size, "lexer->token_str", kFile, __LINE__));
  lexer->max_token_size = size;
}

// Takes the current character and the run of characters after it that
// satisfy the class, at most limit in all, in one step. Reading from a
// string with nothing peeked, the run is copied straight from the input;
// otherwise (files, a pending peek) it falls back to one at a time. The
// class must not contain a newline (lines are counted in advance()).
template <class Class>
void takeRun(D_LEX *lexer, Class in_class, D_INT4 limit) {
  if (lexer->input_string == nullptr || lexer->peek_char != kNoPeek) {
    for (D_INT4 i = 0; i < limit && in_class(lexer->cur_char); ++i) take(lexer);
    return;
  }
  const char *start = lexer->input_string + lexer->string_pos;
  D_INT4 n = 0;
  while (n + 1 < limit && in_class(static_cast<unsigned char>(start[n]))) ++n;
  reserveToken(lexer, n + 1);
  char *out = lexer->token_str + lexer->token_size;
  out[0] = static_cast<char>(lexer->cur_char);
  std::memcpy(out + 1, start, static_cast<std::size_t>(n));
  lexer->token_size += n + 1;
  lexer->token_str[lexer->token_size] = '\0';
  lexer->string_pos += n;
  lexer->cur_char = readRaw(lexer);
}

const char *fileNameOf(const D_LEX *lexer) {
  return lexer->input_file_name != nullptr ? lexer->input_file_name : "<NONE>";
}

// ---- Scanning -----------------------------------------------------------------

// Each answers false when an error has destroyed the lexer.
bool scanComment(D_LEX *lexer) {
  int opener = lexer->cur_char;  // '(' or '/'
  int second = peek(lexer);
  VQ_ASSERT((opener == '(' && second == '*') || (opener == '/' && (second == '*' || second == '/')),
            "comment pair", kFile);
  D_INT4 start_line = lexer->line_num;
  take(lexer);
  take(lexer);
  if (second == '/') {
    while (lexer->cur_char != kEof && lexer->cur_char != '\n') take(lexer);
    return true;
  }
  int closer = opener == '(' ? ')' : '/';
  for (;;) {
    int c = lexer->cur_char;
    if (c == kEof) {
      DutLexError(lexer, "ERROR: No Closing Comment *%c Found\nFor Comment Started on Line Number %ld", closer,
                  static_cast<long>(start_line));
      return false;
    }
    if (c == '*' && peek(lexer) == closer) {
      take(lexer);
      take(lexer);
      return true;
    }
    if (c == opener && peek(lexer) == '*') {
      DutLexError(lexer, "ERROR: Start Of Nested Comment\nComment began on line %ld, nesting occured on line %ld",
                  static_cast<long>(start_line), static_cast<long>(lexer->line_num));
      return false;
    }
    take(lexer);
  }
}

bool scanIdOrPattern(D_LEX *lexer) {
  int question_marks = 0;
  bool previous_question = false;
  lexer->token = D_TOK_IDENTIFIER;
  while (isIdPart(lexer->cur_char)) {
    if (lexer->cur_char == '?') {
      if (question_marks == 2) {
        // A third wildcard ends the token as an error.
        VQ_ASSERT(question_marks <= 2, "num_question_marks <= 2", kFile);
        take(lexer);
        lexer->token = D_TOK_ERROR;
        return true;
      }
      if (previous_question) {
        appendChar(lexer, '?');
        DutLexError(lexer, "ERROR: Pattern <%s> Has Two Adjacent Question Marks\n", lexer->token_str);
        return false;
      }
      ++question_marks;
      previous_question = true;
      lexer->token = D_TOK_PATTERN;
      take(lexer);
    } else {
      previous_question = false;
      // Room for one character past the limit, so that an overlong name
      // fails below exactly as it would one character at a time.
      takeRun(lexer, [](int c) { return isPlainId(c); }, D_LEX_MAX_ID_LENGTH + 1 - lexer->token_size);
    }
    if (lexer->token_size > D_LEX_MAX_ID_LENGTH) {
      DutLexError(lexer, "ERROR: utLexIdOrPattern\nIdentifier Too Long\n<%s>", lexer->token_str);
      return false;
    }
  }
  if (lexer->token == D_TOK_IDENTIFIER && utHaveReservedWords.load(std::memory_order_acquire)) {
    DutProcessMutexLock();
    if (utReservedWords != nullptr) {
      // A miss must not leave "doesn't exist" behind for the caller.
      D_INT4 before = DutErrNumGet();
      D_HASH_BUCKET *bucket = DutHashLookupBucket(utReservedWords, reinterpret_cast<D_WORD>(lexer->token_str));
      if (bucket != nullptr)
        lexer->token = static_cast<D_INT4>(DutHashBucketGetValue(bucket));
      else
        DutErrNumSet(before);
    }
    DutProcessMutexUnlock();
  }
  return true;
}

// Whole numbers of up to 15 digits are exact in a double, so summing
// their digits gives what strtod would, without its general machinery;
// anything else goes to strtod.
double numberValue(const char *text, D_INT4 size) {
  if (size <= 15) {
    std::int64_t whole = 0;
    D_INT4 i = 0;
    for (; i < size && text[i] >= '0' && text[i] <= '9'; ++i) whole = whole * 10 + (text[i] - '0');
    if (i == size) return static_cast<double>(whole);
  }
  return std::strtod(text, nullptr);
}

void scanNumber(D_LEX *lexer) {
  if (isDigit(lexer->cur_char)) takeRun(lexer, [](int c) { return isDigit(c); }, INT32_MAX);
  if (lexer->cur_char == '.') {
    take(lexer);
    if (isDigit(lexer->cur_char)) takeRun(lexer, [](int c) { return isDigit(c); }, INT32_MAX);
  }
  if (lexer->cur_char == 'e' || lexer->cur_char == 'E') {
    int next = peek(lexer);
    if (isDigit(next) || next == '+' || next == '-') {
      take(lexer);
      if (lexer->cur_char == '+' || lexer->cur_char == '-') take(lexer);
      while (isDigit(lexer->cur_char)) take(lexer);
    }
  }
  lexer->token = D_TOK_UNSIGNED_NUMBER;
  lexer->value = numberValue(lexer->token_str, lexer->token_size);
}

int escaped(int c) {
  switch (c) {
    case 'n': return '\n';
    case 't': return '\t';
    case 'r': return '\r';
    case 'b': return '\b';
    case 'f': return '\f';
    case 'v': return '\v';
    case 'a': return '\a';
    case '\\': return '\\';
    case '"': return '"';
    case '\'': return '\'';
    default: return -1;
  }
}

bool scanString(D_LEX *lexer) {
  DutSafeStringClear(&lexer->value_str);
  take(lexer);  // the opening quote
  for (;;) {
    int c = lexer->cur_char;
    if (c == kEof) {
      DutLexError(lexer, "ERROR: Found EOF in string constant %s", lexer->token_str);
      return false;
    }
    if (c == '\n') {
      DutLexError(lexer, "ERROR: Found newline in string constant %s", lexer->token_str);
      return false;
    }
    take(lexer);
    if (c == '"') break;
    if (c == '\\') {
      int e = lexer->cur_char;
      if (e == kEof || e == '\n') continue;  // reported on the next round
      take(lexer);
      int value = escaped(e);
      if (value < 0) {
        DutWarning("unknown escape sequence \\%c at line %ld of file <%s>\n", e, static_cast<long>(lexer->line_num),
                   fileNameOf(lexer));
        value = e;
      }
      DutSafeStringAppendChar(&lexer->value_str, static_cast<char>(value));
    } else if (c != '\0') {  // a NUL read from a file cannot be part of a text
      DutSafeStringAppendChar(&lexer->value_str, static_cast<char>(c));
    }
  }
  lexer->token = D_TOK_STRING;
  return true;
}

struct Operator {
  char first;
  D_INT4 single;
  char second_a;
  D_INT4 double_a;
  char second_b;
  D_INT4 double_b;
};

// Longest match: an operator character, then what may follow it.
constexpr Operator kOperators[] = {
    {'+', D_TOK_PLUS, '+', D_TOK_PLUS_PLUS, '=', D_TOK_PLUS_EQUALS},
    {'-', D_TOK_MINUS, '-', D_TOK_MINUS_MINUS, '=', D_TOK_MINUS_EQUALS},
    {'*', D_TOK_STAR, '=', D_TOK_STAR_EQUALS, 0, 0},
    {'/', D_TOK_SLASH, '=', D_TOK_SLASH_EQUALS, 0, 0},
    {'<', D_TOK_LESS, '=', D_TOK_LESS_EQUAL, '>', D_TOK_NOT_EQUAL},
    {'>', D_TOK_GREATER, '=', D_TOK_GREATER_EQUAL, 0, 0},
    {':', D_TOK_COLON, '=', D_TOK_ASSIGN, 0, 0},
    {'=', D_TOK_EQUALS, 0, 0, 0, 0},
    {'(', D_TOK_LPAREN, 0, 0, 0, 0},
    {')', D_TOK_RPAREN, 0, 0, 0, 0},
    {'[', D_TOK_LBRACKET, 0, 0, 0, 0},
    {']', D_TOK_RBRACKET, 0, 0, 0, 0},
    {'{', D_TOK_LBRACE, 0, 0, 0, 0},
    {'}', D_TOK_RBRACE, 0, 0, 0, 0},
    {'.', D_TOK_DOT, 0, 0, 0, 0},
    {',', D_TOK_COMMA, 0, 0, 0, 0},
    {';', D_TOK_SEMICOLON, 0, 0, 0, 0},
    {'!', D_TOK_BANG, 0, 0, 0, 0},
    {'$', D_TOK_DOLLAR, 0, 0, 0, 0},
    {'^', D_TOK_CARET, 0, 0, 0, 0},
    {'@', D_TOK_AT, 0, 0, 0, 0},
    {'#', D_TOK_HASH, 0, 0, 0, 0},
    {'%', D_TOK_PERCENT, 0, 0, 0, 0},
    {'&', D_TOK_AMPERSAND, 0, 0, 0, 0},
    {'~', D_TOK_TILDE, 0, 0, 0, 0},
    {'|', D_TOK_BAR, 0, 0, 0, 0},
    {'\\', D_TOK_BACKSLASH, 0, 0, 0, 0},
};

void scanOperator(D_LEX *lexer) {
  int c = lexer->cur_char;
  for (const Operator &op : kOperators) {
    if (op.first != c) continue;
    take(lexer);
    int next = lexer->cur_char;
    if (op.second_a != 0 && next == op.second_a) {
      take(lexer);
      lexer->token = op.double_a;
    } else if (op.second_b != 0 && next == op.second_b) {
      take(lexer);
      lexer->token = op.double_b;
    } else {
      lexer->token = op.single;
    }
    return;
  }
  take(lexer);  // anything else is consumed as an error token
  lexer->token = D_TOK_ERROR;
}

// Token callbacks after white space. The list selection is deliberate: the
// lexer's own list only when there is no global list, the global list when
// both exist, and a merge without an object list (an assertion failure)
// when only the global list exists.
void runTokenCallbacks(D_LEX *lexer) {
  if (utLexTokenCbType == nullptr) return;
  VQ_ASSERT(utLexTokenCbType != nullptr, "utLexTokenCbType != NULL", kFile);
  D_CB_LIST *global = utLexTokenCbType->global_list;
  D_CB_LIST *own = lexer->token_cb_list;
  D_LEX_TOKEN_CB_DATA data{nullptr};
  if (global == nullptr && own == nullptr) return;
  if (global == nullptr) {
    DutCbListCall(own, lexer, &data);
  } else if (own != nullptr) {
    DutCbListCall(global, lexer, &data);
  } else {
    DutCbMergeCall(nullptr, global, lexer, &data);
  }
}

// Reads the next token; false when an error destroyed the lexer.
bool nextToken(D_LEX *lexer) {
  lexer->newline_before = 0;
  for (;;) {
    clearToken(lexer);
    int c = lexer->cur_char;
    if (c == kEof) {
      lexer->token = D_TOK_EOF;
      return true;
    }
    bool white = false;
    if (isSpace(c)) {
      while (isSpace(lexer->cur_char)) {
        if (lexer->cur_char == '\n') {
          lexer->newline_before = 1;
          take(lexer);
        } else {
          takeRun(lexer, [](int x) { return x != '\n' && isSpace(x); }, INT32_MAX);
        }
      }
      white = true;
    } else if ((c == '(' && peek(lexer) == '*') || (c == '/' && (peek(lexer) == '*' || peek(lexer) == '/'))) {
      if (!scanComment(lexer)) return false;
      white = true;
    }
    if (white) {
      lexer->token = D_TOK_WHITE_SPACE;
      runTokenCallbacks(lexer);
      if (lexer->white_space_flag) return true;
      continue;
    }
    if (isIdStart(c)) return scanIdOrPattern(lexer);
    if (isDigit(c) || (c == '.' && isDigit(peek(lexer)))) {
      scanNumber(lexer);
      return true;
    }
    if (c == '"') return scanString(lexer);
    scanOperator(lexer);
    return true;
  }
}

void keepAccepted(D_LEX *lexer, const char *text) { DutSafeStringCopy(&lexer->accepted_text, text); }

// The accepted token's text, then the next token.
bool acceptCurrent(D_LEX *lexer) {
  if (lexer->token == D_TOK_STRING) {
    keepAccepted(lexer, D_SAFE_STRING_STR(lexer->value_str));
  } else {
    keepAccepted(lexer, lexer->token_str);
  }
  if (lexer->token == D_TOK_UNSIGNED_NUMBER) lexer->accepted_value = lexer->value;
  return nextToken(lexer);
}

bool expected(D_LEX *lexer, D_INT4 kind) {
  char want[128];
  char found[128];
  DutLexTokenToString(kind, want);
  DutLexTokenToString(lexer->token, found);
  DutLexError(lexer, "ERROR: Expected: %s,  Found: %s <%s>", want, found, lexer->token_str);
  return false;
}

// Optional sign, then the number token; the value is kept unaccepted so
// that the caller can check it before the number is consumed.
bool readSign(D_LEX *lexer, bool *negative) {
  *negative = false;
  if (lexer->token == D_TOK_PLUS) return nextToken(lexer);
  if (lexer->token == D_TOK_MINUS) {
    *negative = true;
    return nextToken(lexer);
  }
  return true;
}

// A whole number that the signed or the unsigned 32-bit result can hold.
bool isWhole32(double v, bool is_unsigned) {
  if (is_unsigned ? !(v >= 0.0 && v <= 4294967295.0) : !(v >= -2147483648.0 && v <= 2147483647.0)) return false;
  return std::trunc(v) == v;
}

bool wholeNumber(D_LEX *lexer, bool negative, D_REAL8 *value, bool is_unsigned = false) {
  if (lexer->token != D_TOK_UNSIGNED_NUMBER) return expected(lexer, D_TOK_UNSIGNED_NUMBER);
  double v = negative ? -lexer->value : lexer->value;
  if (!isWhole32(v, is_unsigned)) {
    DutLexError(lexer, "ERROR: Expected: signed integer,  Found: signed real <%s>", lexer->token_str);
    return false;
  }
  if (!acceptCurrent(lexer)) return false;
  lexer->accepted_value = v;
  *value = v;
  return true;
}

// Collects the texts of adjacent tokens (no white space between them) until
// white space, end of input or a command separator, with white-space tokens
// delivered for the duration. Leaves the lexer on the next real token.
bool collectAdjacent(D_LEX *lexer, bool (*stop)(D_INT4 token), D_SAFE_STRING *into, bool *alive) {
  D_INT4 saved_flag = lexer->white_space_flag;
  lexer->white_space_flag = 1;
  VQ_ASSERT(lexer->white_space_flag == D_TRUE, "D_TRUE == lexer->white_space_flag", kFile);
  DutSafeStringClear(into);
  bool any = false;
  *alive = true;
  while (!stop(lexer->token)) {
    if (lexer->token == D_TOK_STRING)
      DutSafeStringAppend(into, D_SAFE_STRING_STR(lexer->value_str));
    else
      DutSafeStringAppend(into, lexer->token_str);
    any = true;
    if (!nextToken(lexer)) {
      *alive = false;
      return false;
    }
  }
  lexer->white_space_flag = saved_flag;
  if (any && !saved_flag && lexer->token == D_TOK_WHITE_SPACE && !nextToken(lexer)) {
    *alive = false;
    return false;
  }
  return any;
}

// A comma ends a file name too: string-list values separate their items
// with commas.
bool endsFileName(D_INT4 token) {
  return token == D_TOK_WHITE_SPACE || token == D_TOK_EOF || token == D_TOK_SEMICOLON || token == D_TOK_COMMA ||
         token == D_TOK_ERROR;
}

bool endsSlot(D_INT4 token) { return !(token >= D_TOK_IDENTIFIER || token == D_TOK_DOT); }

bool acceptSlot(D_LEX *lexer, bool alias_ok) {
  char found[128];
  DutLexTokenToString(lexer->token, found);
  if (lexer->token != D_TOK_DOT && lexer->token < D_TOK_IDENTIFIER) {
    DutLexError(lexer, "ERROR: Expected: slot name,  Found: %s <%s>", found, lexer->token_str);
    return false;
  }
  bool alive = true;
  collectAdjacent(lexer, endsSlot, &lexer->accepted_text, &alive);
  if (!alive) return false;
  const char *slot = D_SAFE_STRING_STR(lexer->accepted_text);
  std::size_t n = std::strlen(slot);
  if (slot[0] == '.') {
    DutLexError(lexer, "ERROR: slot name <%s> cannot start with a dot", slot);
    return false;
  }
  if (n > 0 && slot[n - 1] == '.') {
    DutLexError(lexer, "ERROR: slot name <%s> cannot end with a dot", slot);
    return false;
  }
  if (std::strstr(slot, "..") != nullptr) {
    DutLexError(lexer, "ERROR: Expected: slot name,  Found: %s <%s>", found, slot);
    return false;
  }
  if (!alias_ok && std::strchr(slot, '.') == nullptr) {
    DutLexError(lexer, "ERROR: slot name <%s> does not contain any dots", slot);
    return false;
  }
  return true;
}

void defaultErrorFunc(D_LEX *lexer, const char *format, va_list args, void *) {
  DutVOut(format, args);
  if (lexer->input_file_name != nullptr)
    DutFatalError("\nLexer Error at line %ld of file %s", static_cast<long>(lexer->line_num), lexer->input_file_name);
  else
    DutFatalError("\nLexer Error at line %ld (no file name)", static_cast<long>(lexer->line_num));
}

// ---- Lexer records ---------------------------------------------------------------

// Each thread keeps the last lexer it destroyed, buffers and all, for its
// next creation: a command line creates and destroys one (two through an
// alias), and four allocations and releases were a fifth of a short line's
// cost. Records whose buffers grew large are released rather than kept.
constexpr D_INT4 kSpareTokenLimit = 4 * D_LEX_INITIAL_TOKEN_SIZE;
constexpr D_INT4 kSpareTextLimit = 16 * D_SAFE_STRING_QUANTUM;

void releaseRecord(D_LEX *lexer) {
  DutFreeCheck(lexer->token_str, "lexer->token_str", kFile, __LINE__);
  DutSafeStringDestroy(lexer->value_str);
  DutSafeStringDestroy(lexer->accepted_text);
  DutFreeCheck(lexer, "lexer", kFile, __LINE__);
}

struct SpareLexer {
  D_LEX *lexer = nullptr;
  SpareLexer() = default;
  SpareLexer(const SpareLexer &) = delete;
  SpareLexer &operator=(const SpareLexer &) = delete;
  ~SpareLexer() {
    if (lexer != nullptr) releaseRecord(lexer);
  }
};

thread_local SpareLexer tSpareLexer;

// The kept record reset to what a new one holds (empty texts, no input, no
// functions), or null.
D_LEX *takeSpareLexer() {
  D_LEX *lexer = tSpareLexer.lexer;
  if (lexer == nullptr) return nullptr;
  tSpareLexer.lexer = nullptr;
  char *token_str = lexer->token_str;
  D_INT4 max_token_size = lexer->max_token_size;
  D_SAFE_STRING value_str = lexer->value_str;
  D_SAFE_STRING accepted_text = lexer->accepted_text;
  // The input block is left as it is: block_len 0 marks it empty.
  std::memset(lexer, 0, offsetof(D_LEX, block));
  std::memset(&lexer->white_space_flag, 0, sizeof(D_LEX) - offsetof(D_LEX, white_space_flag));
  lexer->token_str = token_str;
  lexer->token_str[0] = '\0';
  lexer->max_token_size = max_token_size;
  lexer->value_str = value_str;
  DutSafeStringClear(&lexer->value_str);
  lexer->accepted_text = accepted_text;
  DutSafeStringClear(&lexer->accepted_text);
  return lexer;
}

// Keeps a destroyed lexer (its input, file name and callbacks already
// released) when the thread has none kept; false when the caller frees it.
bool keepSpareLexer(D_LEX *lexer) {
  if (tSpareLexer.lexer != nullptr || lexer->max_token_size > kSpareTokenLimit ||
      lexer->value_str.size > kSpareTextLimit || lexer->accepted_text.size > kSpareTextLimit)
    return false;
  tSpareLexer.lexer = lexer;
  return true;
}

D_CB_TYPE *tokenCbType(bool create) {
  DutProcessMutexLock();
  if (utLexTokenCbType == nullptr && create) {
    utLexTokenCbType = DutCbTypeCreate(D_LEX_TOKEN_CB_TYPE, "lexer_token");
    if (utLexTokenCbType == nullptr) utLexTokenCbType = DutCbTypeNumLookup(D_LEX_TOKEN_CB_TYPE);
    if (utLexTokenCbType != nullptr) DutCbTypeSetLocalFlag(utLexTokenCbType, D_CB_LOCAL_DIRECT);
  }
  D_CB_TYPE *type = utLexTokenCbType;
  DutProcessMutexUnlock();
  return type;
}

}  // namespace

// The typed accepts keep their value in the lexer and give it as the result.
// A failure is reported through the error function, which destroys the
// lexer; the library's own callers use these bool forms to tell a failure
// from a zero value whatever error function the lexer has.
namespace vq::lex {

// Read under the lock, called outside it: a global function that
// long-jumps must not leave the lock held.
D_LEX_ERROR_FUNC globalErrorFunc() {
  DutProcessMutexLock();
  D_LEX_ERROR_FUNC func = utLexErrorFunc != nullptr ? utLexErrorFunc : defaultErrorFunc;
  DutProcessMutexUnlock();
  return func;
}

bool acceptSignedReal(D_LEX *lexer, D_REAL8 *value) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  bool negative = false;
  if (!readSign(lexer, &negative)) return false;
  if (!DutLexAccept(lexer, D_TOK_UNSIGNED_NUMBER)) return false;
  if (negative) lexer->accepted_value = -lexer->accepted_value;
  *value = lexer->accepted_value;
  return true;
}

bool acceptSignedInt(D_LEX *lexer, D_INT4 *value) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  bool negative = false;
  if (!readSign(lexer, &negative)) return false;
  D_REAL8 v = 0;
  if (!wholeNumber(lexer, negative, &v)) return false;
  *value = static_cast<D_INT4>(v);
  return true;
}

}  // namespace vq::lex

extern "C" {

// ---- Creation -----------------------------------------------------------------

D_EXPORT D_LEX *DutLexCreate(D_INT4 attribute, ...) {
  D_LEX *lexer = takeSpareLexer();
  if (lexer == nullptr) {
    lexer = static_cast<D_LEX *>(DutCallocCheck(sizeof(D_LEX), "lexer", kFile, __LINE__));
    lexer->max_token_size = D_LEX_INITIAL_TOKEN_SIZE;
    lexer->token_str = static_cast<char *>(
        DutMallocCheck(D_LEX_INITIAL_TOKEN_SIZE, "lexer->token_str", kFile, __LINE__));
    lexer->token_str[0] = '\0';
    lexer->value_str = DutSafeStringCreate();
    lexer->accepted_text = DutSafeStringCreate();
  }
  lexer->line_num = 1;
  lexer->peek_char = kNoPeek;

  va_list args;
  va_start(args, attribute);
  for (D_INT4 att = attribute; att != 0; att = va_arg(args, D_INT4)) {
    switch (att) {
      case D_LEX_ATT_FILE_NAME: {
        const char *name = va_arg(args, const char *);
        if (lexer->input_file_name != nullptr) {
          DutWarning("DutLexCreate: redeclaration of input file name <%s>.\n", name);
          DutWarning("  existing fname = <%s>, new fname = <%s>\n", lexer->input_file_name, name);
          break;
        }
        DutStringCopy(&lexer->input_file_name, name);
        lexer->input_file = DutOpenFile(name, "r");
        if (lexer->input_file == nullptr) {
          DutFatalError("DutLexCreate: cannot open file <%s> for reading.", name);
          break;
        }
        lexer->own_file = 1;
        break;
      }
      case D_LEX_ATT_FILE: {
        FILE *f = va_arg(args, FILE *);
        if (lexer->input_file != nullptr) {
          DutWarning("DutLexCreate: redeclaration of lexer input file.\n");
          break;
        }
        lexer->input_file = f;
        break;
      }
      case D_LEX_ATT_STRING: {
        const char *text = va_arg(args, const char *);
        if (lexer->input_file != nullptr) {
          DutWarning("DutLexCreate: lexer already has input file.\n");
        } else if (lexer->input_string != nullptr) {
          DutWarning("DutLexCreate: lexer already has input string.\n");
        } else {
          lexer->input_string = text;
        }
        break;
      }
      case D_LEX_ATT_ERROR_FUNC: {
        D_LEX_ERROR_FUNC func = va_arg(args, D_LEX_ERROR_FUNC);
        if (lexer->error_func != nullptr)
          DutWarning("DutLexCreate: lexer already has error func.\n");
        else
          lexer->error_func = func;
        break;
      }
      case D_LEX_ATT_ERROR_ARG: {
        void *arg = va_arg(args, void *);
        if (lexer->error_arg != nullptr)
          DutWarning("DutLexCreate: lexer already has error arg\n");
        else
          lexer->error_arg = arg;
        break;
      }
      case D_LEX_ATT_WHITE_SPACE:
        lexer->white_space_flag = va_arg(args, int) != 0 ? 1 : 0;
        break;
      case D_LEX_ATT_FLAG2:
        lexer->flag2 = va_arg(args, int) != 0 ? 1 : 0;
        break;
      default:
        // The value's type is unknown, so the rest of the list cannot be read.
        DutWarning("DutLexCreate: unknown lex att %d\n", static_cast<int>(att));
        va_end(args);
        va_start(args, attribute);
        att = 0;
        goto done;
    }
  }
done:
  va_end(args);

  DutProcessMutexLock();
  if (utLexErrorFunc == nullptr) utLexErrorFunc = defaultErrorFunc;
  DutProcessMutexUnlock();

  lexer->cur_char = readRaw(lexer);
  if (!nextToken(lexer)) return nullptr;
  return lexer;
}

D_EXPORT void DutLexDestroy(D_LEX *lexer) {
  if (lexer == nullptr) return;
  if (lexer->own_file && lexer->input_file != nullptr) DutCloseFile(lexer->input_file);
  if (lexer->input_file_name != nullptr) {
    DutFreeCheck(lexer->input_file_name, "lexer->input_file_name", kFile, __LINE__);
  }
  if (lexer->token_cb_list != nullptr) {
    D_BOOL status = DutCbListDestroy(lexer->token_cb_list);
    VQ_ASSERT(status == D_TRUE, "D_TRUE == status", kFile);
  }
  if (!keepSpareLexer(lexer)) releaseRecord(lexer);
}

D_EXPORT D_INT4 DutLexGetToken(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  return lexer->token;
}

D_EXPORT const char *DutLexGetTokenText(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  return lexer->token_str;
}

D_EXPORT const char *DutLexGetText(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  return D_SAFE_STRING_STR(lexer->accepted_text);
}

D_EXPORT D_REAL8 DutLexGetValue(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  return lexer->accepted_value;
}

// ---- Accept functions -----------------------------------------------------------

D_EXPORT D_BOOL DutLexAccept(D_LEX *lexer, D_INT4 kind) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  if (lexer->token != kind) return expected(lexer, kind) ? D_TRUE : D_FALSE;
  return acceptCurrent(lexer) ? D_TRUE : D_FALSE;
}

D_EXPORT D_BOOL DutLexAcceptId(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  // A reserved word is accepted as it stands.
  if (lexer->token < D_TOK_IDENTIFIER) return expected(lexer, D_TOK_IDENTIFIER) ? D_TRUE : D_FALSE;
  return acceptCurrent(lexer) ? D_TRUE : D_FALSE;
}

D_EXPORT D_BOOL DutLexAcceptPattern(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  if (lexer->token < D_TOK_PATTERN) return expected(lexer, D_TOK_IDENTIFIER) ? D_TRUE : D_FALSE;
  return acceptCurrent(lexer) ? D_TRUE : D_FALSE;
}


D_EXPORT D_REAL8 DutLexAcceptSignedReal(D_LEX *lexer) {
  D_REAL8 value = 0.0;
  return vq::lex::acceptSignedReal(lexer, &value) ? value : 0.0;
}

D_EXPORT D_INT4 DutLexAcceptSignedInt(D_LEX *lexer) {
  D_INT4 value = 0;
  return vq::lex::acceptSignedInt(lexer, &value) ? value : 0;
}

D_EXPORT D_UINT4 DutLexAcceptUnsignedInt(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  D_REAL8 v = 0;
  if (!wholeNumber(lexer, false, &v, true)) return 0;
  return static_cast<D_UINT4>(v);
}

D_EXPORT D_BOOL DutLexAcceptBool(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  int result = -1;
  if (lexer->token == D_TOK_IDENTIFIER) {
    if (DutStrCmpi(lexer->token_str, "true") == 0) result = 1;
    if (DutStrCmpi(lexer->token_str, "false") == 0) result = 0;
  }
  if (result < 0) {
    // The found kind is always named an identifier, whatever the token was.
    DutLexError(lexer, "ERROR: Expected: boolean constant,  Found: <identifier> <%s>", lexer->token_str);
    return D_FALSE;
  }
  if (!acceptCurrent(lexer)) return D_FALSE;
  lexer->accepted_value = result;
  return result;
}

D_EXPORT D_BOOL DutLexAcceptFileName(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  if (endsFileName(lexer->token)) {
    char found[128];
    DutLexTokenToString(lexer->token, found);
    DutLexError(lexer, "ERROR: Expected: flexible string,  Found: %s <%s>", found, lexer->token_str);
    return D_FALSE;
  }
  bool alive = true;
  collectAdjacent(lexer, endsFileName, &lexer->accepted_text, &alive);
  if (!alive) return D_FALSE;
  DutSafeStringCopy(&lexer->value_str, D_SAFE_STRING_STR(lexer->accepted_text));
  return D_TRUE;
}

D_EXPORT D_BOOL DutLexAcceptSlot(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  return acceptSlot(lexer, false) ? D_TRUE : D_FALSE;
}

D_EXPORT D_BOOL DutLexAcceptSlotOrAlias(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  return acceptSlot(lexer, true) ? D_TRUE : D_FALSE;
}

D_EXPORT void DutLexSkipToEoln(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  if (lexer->token == D_TOK_EOF) return;
  // The current token already lies on the next line: nothing is left of this one.
  if (lexer->newline_before) return;
  if (lexer->token == D_TOK_WHITE_SPACE && std::strchr(lexer->token_str, '\n') != nullptr) {
    nextToken(lexer);
    return;
  }
  clearToken(lexer);
  while (lexer->cur_char != kEof && lexer->cur_char != '\n') {
    // A block comment opened here could hide the end of the line.
    if ((lexer->cur_char == '(' || lexer->cur_char == '/') && peek(lexer) == '*') {
      int opener = lexer->cur_char;
      DutLexError(lexer,
                  opener == '(' ? "ERROR: Unexpected token: (%c found.\n" : "ERROR: Unexpected token: /%c found.\n",
                  '*');
      return;
    }
    take(lexer);
  }
  if (lexer->cur_char == '\n') take(lexer);
  nextToken(lexer);
}

D_EXPORT void DutLexGobbleWhitespace(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  VQ_ASSERT(D_GLEX_WHITE_SPACE_FLAG(lexer), "D_GLEX_WHITE_SPACE_FLAG(lexer)", kFile);
  while (lexer->token == D_TOK_WHITE_SPACE) {
    if (!nextToken(lexer)) return;
  }
}

D_EXPORT long DutLexGetCurrentPositionInFile(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  VQ_ASSERT(lexer->input_file != nullptr, "lexer->input_file != NULL", kFile);
  long at = std::ftell(lexer->input_file);
  if (at < 0) {
    DutWarning("DutLexGetCurrentPositionInFile: Cannot locate current position in file <%s>.\n", fileNameOf(lexer));
    return -1;
  }
  // Characters read ahead into the block, the peeked one and the current
  // character (not yet part of any token) are not yet used.
  long unread = lexer->block_len - lexer->block_pos;
  if (lexer->peek_char >= 0) ++unread;
  if (lexer->cur_char >= 0) ++unread;
  return at - unread;
}

// ---- Token kinds and reserved words ---------------------------------------------

D_EXPORT char *DutLexTokenToString(D_INT4 kind, char *buffer) {
  VQ_ASSERT(kind >= D_TOK_ERROR, "token >= D_TOK_ERROR", kFile);
  if (buffer == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return nullptr;
  }
  if (kind <= 0) {
    std::strcpy(buffer, kTokenTexts[-kind]);
    return buffer;
  }
  const char *word = nullptr;
  DutProcessMutexLock();
  if (utReservedWords != nullptr) {
    struct Find {
      static D_WORD visit(D_WORD key, D_WORD value, void *arg) {
        return value == *static_cast<D_WORD *>(arg) ? key : 0;
      }
    };
    D_WORD want = kind;
    D_INT4 before = DutErrNumGet();
    word = reinterpret_cast<const char *>(DutHashTraverse(utReservedWords, Find::visit, &want));
    DutErrNumSet(before);
  }
  DutProcessMutexUnlock();
  if (word != nullptr) {
    std::strcpy(buffer, word);
    return buffer;
  }
  DutWarning("DutLexTokenToString: unknown token %ld\n", static_cast<long>(kind));
  std::sprintf(buffer, "<UNKNOWN TOKEN %ld>", static_cast<long>(kind));
  return buffer;
}

D_EXPORT D_BOOL DutLexAddReservedWord(const char *word, D_INT4 kind) {
  if (word == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  if (kind < 1) {
    DutErrNumSet(D_ERR_VAL_TOO_SMALL);
    return D_FALSE;
  }
  DutProcessMutexLock();
  if (utReservedWords == nullptr) utReservedWords = DutHashCreateStri(kReservedTableSize);
  if (DutHashLookupBucket(utReservedWords, reinterpret_cast<D_WORD>(word)) != nullptr) {
    DutProcessMutexUnlock();
    DutErrNumSet(D_ERR_ALREADY_EXISTS);
    return D_FALSE;
  }
  std::size_t n = std::strlen(word) + 1;
  char *lower = static_cast<char *>(DutMallocCheck(static_cast<D_INT4>(n), "lower_word", kFile, __LINE__));
  for (std::size_t i = 0; i < n; ++i) lower[i] = static_cast<char>(std::tolower(static_cast<unsigned char>(word[i])));
  DutHashInsert(utReservedWords, reinterpret_cast<D_WORD>(lower), kind);
  utHaveReservedWords.store(true, std::memory_order_release);
  DutProcessMutexUnlock();
  return D_TRUE;
}

D_EXPORT D_BOOL DutLexPrintReservedWords(void) {
  DutProcessMutexLock();
  if (utReservedWords == nullptr) {
    DutProcessMutexUnlock();
    return D_FALSE;
  }
  struct Print {
    static D_WORD visit(D_WORD key, D_WORD value, void *) {
      DutOut("Name %s, value %ld\n", reinterpret_cast<const char *>(key), static_cast<long>(value));
      return 0;
    }
  };
  DutHashTraverse(utReservedWords, Print::visit, nullptr);
  DutProcessMutexUnlock();
  return D_TRUE;
}

// ---- Token callbacks ---------------------------------------------------------------

D_EXPORT D_CB *DutLexTokenCbCreate(D_LEX *lexer, D_CB_FUNC func, D_WORD arg) {
  if (func == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return nullptr;
  }
  D_CB_TYPE *type = tokenCbType(true);
  if (type == nullptr) return nullptr;
  if (lexer == nullptr) return DutCbCreateGlobal(type, func, arg);
  if (lexer->token_cb_list == nullptr) lexer->token_cb_list = DutCbListCreate(type, lexer);
  return DutCbListCbCreate(lexer->token_cb_list, func, arg);
}

D_EXPORT D_CB *DutLexTokenCbLookup(D_LEX *lexer, D_CB_FUNC func, D_WORD arg) {
  D_CB_TYPE *type = tokenCbType(false);
  D_CB_LIST *list = nullptr;
  if (type != nullptr) list = lexer == nullptr ? type->global_list : lexer->token_cb_list;
  if (list == nullptr) {
    DutErrNumSet(D_ERR_DOESNT_EXIST);
    return nullptr;
  }
  return DutCbListCbLookup(list, func, arg);
}

// ---- Errors ---------------------------------------------------------------------------

D_EXPORT void DutLexError(D_LEX *lexer, const char *format, ...) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  va_list args;
  va_start(args, format);
  if (lexer->error_func != nullptr) {
    lexer->error_func(lexer, format, args, lexer->error_arg);
  } else {
    vq::lex::globalErrorFunc()(lexer, format, args, lexer->error_arg);
  }
  va_end(args);
  DutLexDestroy(lexer);
}

D_EXPORT void DutLexSetUserErrorFunc(D_LEX_ERROR_FUNC error_func) {
  VQ_ASSERT(error_func != nullptr, "error_func != NULL", kFile);
  DutProcessMutexLock();
  utLexErrorFunc = error_func;
  DutProcessMutexUnlock();
}

D_EXPORT void DutLexLongjmpErrorFunc(D_LEX *lexer, const char *format, va_list args, void *error_arg) {
  DutVOut(format, args);
  DutOut("\nFile: %s, Line: %ld\n", fileNameOf(lexer), static_cast<long>(lexer->line_num));
  DutLexDestroy(lexer);
  std::longjmp(*static_cast<jmp_buf *>(error_arg), D_LEX_JUMP_VALUE);
}

D_EXPORT void DutLexQuietLongjmpErrorFunc(D_LEX *lexer, const char *, va_list, void *error_arg) {
  DutLexDestroy(lexer);
  std::longjmp(*static_cast<jmp_buf *>(error_arg), D_LEX_JUMP_VALUE);
}

}  // extern "C"

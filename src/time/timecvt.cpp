// Time converters: named pairs of functions between a time (seconds since
// the epoch) and its text, the registry that holds them, and the current
// converter through which the whole process prints and reads times.
#include <algorithm>
#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <limits>

#include "frame/check.hpp"
#include "platform/os.hpp"
#include "threads/process_lock.hpp"
#include "time/time_state.hpp"
#include "vqutil/error.h"
#include "vqutil/lex.h"
#include "vqutil/memory.h"
#include "vqutil/output.h"
#include "vqutil/strutil.h"
#include "vqutil/time.h"

namespace {

using vq::time::kTimeFile;

// ---- Registry state (process-wide lock) -------------------------------------------

D_HASH_TABLE *utTimeCvtTable = nullptr;
D_TIME_CVT *utTimeCvtCurrent = nullptr;

// ---- Shared helpers -----------------------------------------------------------------

constexpr std::size_t kFullSize = 64;  // 30 for the default format; room for a wider one
constexpr std::size_t kHmsSize = 9;
constexpr std::size_t kNumericSize = 40;
constexpr const char *kDefaultFullFormat = "%.3f";
constexpr std::size_t kFormatSize = 32;

char *utTimeCvtFullStr = nullptr;
char utTimeCvtFullFormat[kFormatSize];
char *utTimeCvtHmsStr = nullptr;
char *utTimeCvtNumericStr = nullptr;

// The ctime text of a time (ending in a newline), or false when the time
// has no such text.
bool ctimeOf(D_REAL8 time, char *text, std::size_t size) {
  if (!std::isfinite(time) || std::fabs(time) > 1e15) return false;
  vq::os::ctimeText(static_cast<std::time_t>(std::trunc(time)), text, size);
  return std::strlen(text) >= 20;
}

// True when format prints one real number and nothing unsafe: text, "%%",
// and exactly one conversion of the f, e or g kinds with flags, width and
// precision. The format comes from the environment and goes to snprintf.
bool isRealFormat(const char *format) {
  if (std::strlen(format) >= kFormatSize) return false;
  int conversions = 0;
  for (const char *p = format; *p != '\0'; ++p) {
    if (*p != '%') continue;
    ++p;
    if (*p == '%') continue;
    while (*p != '\0' && std::strchr("-+ #0", *p) != nullptr) ++p;
    while (*p >= '0' && *p <= '9') ++p;
    if (*p == '.') {
      ++p;
      while (*p >= '0' && *p <= '9') ++p;
    }
    if (*p == 'l') ++p;
    if (*p == '\0' || std::strchr("fFeEgG", *p) == nullptr) return false;
    ++conversions;
  }
  return conversions == 1;
}

// ---- "full": number to text ------------------------------------------------------------

D_BOOL fullNumToStr(D_REAL8 time, const char **str_return) {
  VQ_ASSERT(str_return != nullptr, "str_return != NULL", kTimeFile);
  vq::ProcessLock lock;
  if (utTimeCvtFullStr == nullptr) {
    utTimeCvtFullStr = static_cast<char *>(DutMallocCheck(kFullSize, "utTimeCvtFullStr", kTimeFile, __LINE__));
    const char *format = std::getenv("VQFULLFORMAT");
    if (format == nullptr) format = kDefaultFullFormat;
    if (!isRealFormat(format)) {
      DutWarning("VQFULLFORMAT <%s> does not print one real number; using %s.\n", format, kDefaultFullFormat);
      format = kDefaultFullFormat;
    }
    std::snprintf(utTimeCvtFullFormat, sizeof utTimeCvtFullFormat, "%s", format);
  }
  *str_return = utTimeCvtFullStr;
  char text[64] = {};
  if (!ctimeOf(time, text, sizeof text)) {
    std::snprintf(utTimeCvtFullStr, kFullSize, "error");
    return D_FALSE;
  }
  char fraction[40];
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#endif
  std::snprintf(fraction, sizeof fraction, utTimeCvtFullFormat, time - std::trunc(time));
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
  // "Wed Jun 30 21:49:08" + ".250" (the fraction without its leading
  // digit) + " 1993\n".
  std::size_t used = 0;
  auto append = [&used](const char *piece, std::size_t count) {
    count = std::min(count, kFullSize - 1 - used);
    std::memcpy(utTimeCvtFullStr + used, piece, count);
    used += count;
  };
  append(text, 19);
  if (fraction[0] != '\0') append(fraction + 1, std::strlen(fraction + 1));
  append(text + 19, std::strlen(text + 19));
  utTimeCvtFullStr[used] = '\0';
  std::size_t len = std::strlen(utTimeCvtFullStr);
  VQ_EXPECT(len > 0 && utTimeCvtFullStr[len - 1] == '\n',
            "utTimeCvtFullStr[D_C_STRLEN(utTimeCvtFullStr) - 1] == '\\n'", kTimeFile);
  if (len > 0 && utTimeCvtFullStr[len - 1] == '\n') utTimeCvtFullStr[len - 1] = '\0';
  return D_TRUE;
}

void fullCleanup() {
  vq::ProcessLock lock;
  if (utTimeCvtFullStr != nullptr) DutFreeCheck(utTimeCvtFullStr, "utTimeCvtFullStr", kTimeFile, __LINE__);
  utTimeCvtFullStr = nullptr;
}

// ---- "hms": number to text -----------------------------------------------------------------

D_BOOL hmsNumToStr(D_REAL8 time, const char **str_return) {
  VQ_ASSERT(str_return != nullptr, "str_return != NULL", kTimeFile);
  vq::ProcessLock lock;
  if (utTimeCvtHmsStr == nullptr) {
    utTimeCvtHmsStr = static_cast<char *>(DutMallocCheck(kHmsSize, "utTimeCvtHmsStr", kTimeFile, __LINE__));
  }
  *str_return = utTimeCvtHmsStr;
  char text[64] = {};
  if (!ctimeOf(time, text, sizeof text)) {
    std::snprintf(utTimeCvtHmsStr, kHmsSize, "error");
    return D_FALSE;
  }
  std::memcpy(utTimeCvtHmsStr, text + 11, 8);  // "hh:mm:ss"
  utTimeCvtHmsStr[8] = '\0';
  return D_TRUE;
}

void hmsCleanup() {
  vq::ProcessLock lock;
  if (utTimeCvtHmsStr != nullptr) DutFreeCheck(utTimeCvtHmsStr, "utTimeCvtHmsStr", kTimeFile, __LINE__);
  utTimeCvtHmsStr = nullptr;
}

// ---- "numeric" --------------------------------------------------------------------------------

D_BOOL numericNumToStr(D_REAL8 time, const char **str_return) {
  VQ_ASSERT(str_return != nullptr, "str_return != NULL", kTimeFile);
  vq::ProcessLock lock;
  if (utTimeCvtNumericStr == nullptr) {
    utTimeCvtNumericStr =
        static_cast<char *>(DutMallocCheck(kNumericSize, "utTimeCvtNumericStr", kTimeFile, __LINE__));
  }
  DutRealToStrCopy(time, utTimeCvtNumericStr);
  *str_return = utTimeCvtNumericStr;
  return D_TRUE;
}

D_BOOL numericStrToNum(const char *str, D_REAL8 *time_return) {
  VQ_ASSERT(time_return != nullptr, "time_return != NULL", kTimeFile);
  if (str == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  double value = 0.0;
  if (std::sscanf(str, "%lf", &value) != 1) return D_FALSE;
  *time_return = value;
  return D_TRUE;
}

void numericCleanup() {
  vq::ProcessLock lock;
  if (utTimeCvtNumericStr != nullptr) {
    DutFreeCheck(utTimeCvtNumericStr, "utTimeCvtNumericStr", kTimeFile, __LINE__);
  }
  utTimeCvtNumericStr = nullptr;
}

// ---- "full" and "hms": text to number ---------------------------------------------------------
//
// The readers run the lexer with the long-jump error function: a lexical
// error prints the lexer's message, destroys the lexer and lands at the
// setjmp in readTime. Every frame between (readTime, readFull, readHms and
// the field readers) holds plain data only, so nothing is skipped that
// needed a destructor.

// The calendar fields of a reading; whatever the text leaves out comes
// from the base time's local date.
struct TimeFields {
  int year;  // full year
  int month; // 0-11
  int day;   // 1-31
  int hour;
  int minute;
  D_REAL8 second;  // with its fraction
  bool month_given;
};

struct MonthName {
  const char *short_name;
  const char *long_name;
  int days;  // most days the month can have
};

constexpr MonthName kMonths[12] = {
    {"jan", "january", 31}, {"feb", "february", 29}, {"mar", "march", 31},     {"apr", "april", 30},
    {"may", "may", 31},     {"jun", "june", 30},     {"jul", "july", 31},      {"aug", "august", 31},
    {"sep", "september", 30}, {"oct", "october", 31}, {"nov", "november", 30}, {"dec", "december", 31},
};

int monthIndex(const char *word) {
  for (int i = 0; i < 12; ++i) {
    if (DutStrCmpi(word, kMonths[i].short_name) == 0 || DutStrCmpi(word, kMonths[i].long_name) == 0) return i;
  }
  return -1;
}

// The year rule of the calendar this format uses: divisible by 4, not by
// 100 unless by 400, and never by 4000.
bool isLeapYear(long year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0) && year % 4000 != 0; }

// A value for a "%d"/"%ld" message without overflowing the conversion.
long clampToLong(D_REAL8 value) {
  constexpr D_REAL8 kMax = std::numeric_limits<D_INT4>::max();
  if (!(value < kMax)) return std::numeric_limits<D_INT4>::max();
  return static_cast<long>(value);
}

bool hasFraction(D_REAL8 value) { return value != std::floor(value); }

// The next unsigned number, with its text. A token of another kind is a
// lexical error, which jumps out.
D_REAL8 acceptNumber(D_LEX *lexer, const char **text) {
  D_BOOL accepted = DutLexAccept(lexer, D_TOK_UNSIGNED_NUMBER);
  // Only a long-jump error function is installed: failure never returns.
  VQ_ASSERT(accepted, "D_TRUE == status", kTimeFile);
  *text = DutLexGetText(lexer);
  return DutLexGetValue(lexer);
}

// "hours : minutes : seconds" into fields; false after a warning.
bool readClock(D_LEX *lexer, const char *prefix, TimeFields *fields) {
  const char *text = nullptr;
  D_REAL8 hour = acceptNumber(lexer, &text);
  if (hasFraction(hour)) {
    DutWarning("%s%s is not a valid hour.\n", prefix, text);
    return false;
  }
  if (hour >= 24) {
    DutWarning("%s%d is not a valid hour.\n", prefix, static_cast<int>(clampToLong(hour)));
    return false;
  }
  DutLexAccept(lexer, D_TOK_COLON);
  D_REAL8 minute = acceptNumber(lexer, &text);
  if (hasFraction(minute)) {
    DutWarning("%s%s is not a valid minute.\n", prefix, text);
    return false;
  }
  if (minute >= 60) {
    DutWarning("%s%d is not a valid minute.\n", prefix, static_cast<int>(clampToLong(minute)));
    return false;
  }
  DutLexAccept(lexer, D_TOK_COLON);
  D_REAL8 second = acceptNumber(lexer, &text);
  if (std::floor(second) >= 60) {
    DutWarning("%s%s is not a valid second.\n", prefix, text);
    return false;
  }
  fields->hour = static_cast<int>(hour);
  fields->minute = static_cast<int>(minute);
  fields->second = second;
  return true;
}

constexpr const char *kFullPrefix = "utTimeCvtFullStrToNum: ";
constexpr const char *kHmsPrefix = "utTimeCvtHmsStrToNum: ";

// [month day] hh:mm:ss [year]
bool readFull(D_LEX *lexer, TimeFields *fields) {
  const char *text = nullptr;
  if (DutLexGetToken(lexer) >= D_TOK_IDENTIFIER) {
    int month = monthIndex(DutLexGetTokenText(lexer));
    if (month < 0) {
      DutWarning("%s%s is not a valid month.\n", kFullPrefix, DutLexGetTokenText(lexer));
      return false;
    }
    DutLexAcceptId(lexer);
    D_REAL8 day = acceptNumber(lexer, &text);
    if (hasFraction(day)) {
      DutWarning("%s%s is not a valid day of the month.\n", kFullPrefix, text);
      return false;
    }
    if (day < 1 || day > kMonths[month].days) {
      DutWarning("%s%d is not a valid day of the month.\n", kFullPrefix, static_cast<int>(clampToLong(day)));
      return false;
    }
    fields->month = month;
    fields->day = static_cast<int>(day);
    fields->month_given = true;
  }
  if (!readClock(lexer, kFullPrefix, fields)) return false;
  if (DutLexGetToken(lexer) != D_TOK_EOF) {
    if (!fields->month_given) {
      DutWarning("%syear not allowed when month and day ommitted.\n", kFullPrefix);
      return false;
    }
    D_REAL8 year = acceptNumber(lexer, &text);
    if (DutLexGetToken(lexer) != D_TOK_EOF) {
      DutWarning("%sfound extra tokens after year.\n", kFullPrefix);
      return false;
    }
    if (hasFraction(year)) {
      DutWarning("%s%s is not a valid year.\n", kFullPrefix, text);
      return false;
    }
    // Two digits: 00-69 are 2000-2069, 70-99 are 1970-1999. Written in
    // full, the format knows only 1970 to 2020.
    if (year < 70) {
      fields->year = 2000 + static_cast<int>(year);
    } else if (year < 100) {
      fields->year = 1900 + static_cast<int>(year);
    } else if (year >= 1970 && year <= 2020) {
      fields->year = static_cast<int>(year);
    } else {
      DutWarning("%s%ld is not a valid year.\n", kFullPrefix, clampToLong(year));
      return false;
    }
  }
  if (fields->month == 1 && fields->day == 29 && !isLeapYear(fields->year)) {
    DutWarning("%s%d is not a valid day of the month.\n", kFullPrefix, fields->day);
    return false;
  }
  return true;
}

// hh:mm:ss on the base day.
bool readHms(D_LEX *lexer, TimeFields *fields) {
  if (!readClock(lexer, kHmsPrefix, fields)) return false;
  if (DutLexGetToken(lexer) != D_TOK_EOF) {
    DutWarning("utTimeCvtHmsToNum: found extra tokens after second.\n");
    return false;
  }
  return true;
}

// The base time's local calendar date. localtime's shared result is read
// under the process-wide lock.
TimeFields baseFields() {
  D_REAL8 base = vq::time::baseTime();
  std::time_t t = static_cast<std::time_t>(std::isfinite(base) ? base : 0.0);
  TimeFields fields{1970, 0, 1, 0, 0, 0.0, false};
  vq::ProcessLock lock;
  const std::tm *local = std::localtime(&t);
  if (local != nullptr) {
    fields.year = local->tm_year + 1900;
    fields.month = local->tm_mon;
    fields.day = local->tm_mday;
  }
  return fields;
}

D_REAL8 fieldsToTime(const TimeFields &fields) {
  std::tm tm{};
  tm.tm_year = fields.year - 1900;
  tm.tm_mon = fields.month;
  tm.tm_mday = fields.day;
  tm.tm_hour = fields.hour;
  tm.tm_min = fields.minute;
  D_REAL8 whole = std::floor(fields.second);
  tm.tm_sec = static_cast<int>(whole);
  tm.tm_isdst = -1;  // daylight saving as the date has it
  std::time_t t = std::mktime(&tm);
  return static_cast<D_REAL8>(t) + (fields.second - whole);
}

using FieldReader = bool (*)(D_LEX *lexer, TimeFields *fields);

D_BOOL readTime(const char *str, D_REAL8 *time_return, FieldReader reader) {
  VQ_ASSERT(time_return != nullptr, "time_return != NULL", kTimeFile);
  if (str == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  TimeFields fields = baseFields();
  std::jmp_buf jump;
  D_LEX *volatile lexer = nullptr;
  if (setjmp(jump) == D_LEX_JUMP_VALUE) return D_FALSE;  // reported; the lexer is gone
  lexer = DutLexCreate(D_LEX_ATT_STRING, str, D_LEX_ATT_ERROR_FUNC, DutLexLongjmpErrorFunc, D_LEX_ATT_ERROR_ARG,
                       &jump, 0);
  bool ok = reader(lexer, &fields);
  DutLexDestroy(lexer);
  if (!ok) return D_FALSE;
  *time_return = fieldsToTime(fields);
  return D_TRUE;
}

D_BOOL fullStrToNum(const char *str, D_REAL8 *time_return) { return readTime(str, time_return, readFull); }

D_BOOL hmsStrToNum(const char *str, D_REAL8 *time_return) { return readTime(str, time_return, readHms); }

// ---- Registry -----------------------------------------------------------------------------------

// Caller holds the process-wide lock.
D_TIME_CVT *createLocked(const char *name, D_TIME_CVT_NUM_TO_STR_FUNC num_to_str_func,
                         D_TIME_CVT_STR_TO_NUM_FUNC str_to_num_func, D_TIME_CVT_CLEANUP_FUNC cleanup_func) {
  // A miss is the expected answer here; it must not leave "doesn't exist".
  D_INT4 saved = DutErrNumGet();
  D_HASH_BUCKET *existing = DutHashLookupBucket(utTimeCvtTable, reinterpret_cast<D_WORD>(name));
  DutErrNumSet(saved);
  if (existing != nullptr) return nullptr;
  auto *time_cvtr = static_cast<D_TIME_CVT *>(DutMallocCheck(sizeof(D_TIME_CVT), "time_cvtr", kTimeFile, __LINE__));
  time_cvtr->name = nullptr;
  DutStringCopy(&time_cvtr->name, name);
  DutStrLwr(time_cvtr->name, time_cvtr->name);
  time_cvtr->num_to_str_func = num_to_str_func;
  time_cvtr->str_to_num_func = str_to_num_func;
  time_cvtr->cleanup_func = cleanup_func;
  DutHashInsert(utTimeCvtTable, reinterpret_cast<D_WORD>(time_cvtr->name), reinterpret_cast<D_WORD>(time_cvtr));
  return time_cvtr;
}

// The table and the built-ins, made together on first need. Caller holds
// the process-wide lock.
void ensureRegistry() {
  if (utTimeCvtTable != nullptr) return;
  utTimeCvtTable = DutHashCreateStri(8);
  VQ_ASSERT(utTimeCvtTable != nullptr, "utTimeCvtTable", kTimeFile);
  D_TIME_CVT *full = createLocked("full", fullNumToStr, fullStrToNum, fullCleanup);
  VQ_ASSERT(full != nullptr, "time_cvtr != NULL", kTimeFile);
  D_TIME_CVT *hms = createLocked("hms", hmsNumToStr, hmsStrToNum, hmsCleanup);
  VQ_ASSERT(hms != nullptr, "time_cvtr != NULL", kTimeFile);
  utTimeCvtCurrent = hms;
  D_TIME_CVT *numeric = createLocked("numeric", numericNumToStr, numericStrToNum, numericCleanup);
  VQ_ASSERT(numeric != nullptr, "time_cvtr != NULL", kTimeFile);
}

}  // namespace

extern "C" {

D_EXPORT D_TIME_CVT *DutTimeCvtCreate(const char *name, D_TIME_CVT_NUM_TO_STR_FUNC num_to_str_func,
                                      D_TIME_CVT_STR_TO_NUM_FUNC str_to_num_func,
                                      D_TIME_CVT_CLEANUP_FUNC cleanup_func) {
  if (name == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return nullptr;
  }
  VQ_ASSERT(num_to_str_func != nullptr, "num_to_str_func != NULL", kTimeFile);
  VQ_ASSERT(str_to_num_func != nullptr, "str_to_num_func != NULL", kTimeFile);
  vq::ProcessLock lock;
  ensureRegistry();
  return createLocked(name, num_to_str_func, str_to_num_func, cleanup_func);
}

D_EXPORT D_TIME_CVT *DutTimeCvtLookup(const char *name) {
  VQ_ASSERT(name != nullptr, "name != NULL", kTimeFile);
  vq::ProcessLock lock;
  ensureRegistry();
  return reinterpret_cast<D_TIME_CVT *>(DutHashLookup(utTimeCvtTable, reinterpret_cast<D_WORD>(name)));
}

D_EXPORT D_BOOL DutTimeCvtDestroy(D_TIME_CVT *time_cvtr) {
  if (time_cvtr == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  vq::ProcessLock lock;
  ensureRegistry();
  if (time_cvtr == utTimeCvtCurrent) return D_FALSE;
  if (time_cvtr->cleanup_func != nullptr) time_cvtr->cleanup_func();
  auto *deleted_cvtr =
      reinterpret_cast<D_TIME_CVT *>(DutHashDelete(utTimeCvtTable, reinterpret_cast<D_WORD>(time_cvtr->name)));
  VQ_ASSERT(deleted_cvtr == time_cvtr, "deleted_cvtr == time_cvtr", kTimeFile);
  DutFreeCheck(time_cvtr->name, "time_cvtr->name", kTimeFile, __LINE__);
  DutFreeCheck(time_cvtr, "time_cvtr", kTimeFile, __LINE__);
  return D_TRUE;
}

D_EXPORT D_WORD DutTimeCvtTraverse(D_HASH_TRAV_FUNC func, void *arg) {
  vq::ProcessLock lock;
  ensureRegistry();
  return DutHashTraverse(utTimeCvtTable, func, arg);
}

D_EXPORT D_BOOL DutTimeCvtNumToStr(D_TIME_CVT *time_cvtr, D_REAL8 time, const char **str_return) {
  VQ_ASSERT(time_cvtr != nullptr, "time_cvtr != NULL", kTimeFile);
  VQ_ASSERT(str_return != nullptr, "str_return != NULL", kTimeFile);
  return time_cvtr->num_to_str_func(time, str_return);
}

D_EXPORT D_BOOL DutTimeCvtStrToNum(D_TIME_CVT *time_cvtr, const char *str, D_REAL8 *time_return) {
  VQ_ASSERT(time_cvtr != nullptr, "time_cvtr != NULL", kTimeFile);
  VQ_ASSERT(time_return != nullptr, "time_return != NULL", kTimeFile);
  return time_cvtr->str_to_num_func(str, time_return);
}

D_EXPORT D_BOOL DutTimeCvtSetCurrent(D_TIME_CVT *time_cvtr) {
  VQ_ASSERT(time_cvtr != nullptr, "time_cvtr != NULL", kTimeFile);
  vq::ProcessLock lock;
  ensureRegistry();
  utTimeCvtCurrent = time_cvtr;
  return D_TRUE;
}

D_EXPORT D_TIME_CVT *DutTimeCvtGetCurrent(void) {
  vq::ProcessLock lock;
  ensureRegistry();
  return utTimeCvtCurrent;
}

D_EXPORT const char *DutTimeNumToStr(D_REAL8 time) {
  vq::ProcessLock lock;
  ensureRegistry();
  const char *text = nullptr;
  if (!utTimeCvtCurrent->num_to_str_func(time, &text) || text == nullptr) return D_TIME_UNKNOWN_STR;
  return text;
}

D_EXPORT D_BOOL DutTimeStrToNum(const char *str, D_REAL8 *time_return) {
  vq::ProcessLock lock;
  ensureRegistry();
  return utTimeCvtCurrent->str_to_num_func(str, time_return);
}

D_EXPORT char *DutTimeToString(D_REAL8 time, char *buffer) {
  if (buffer == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return nullptr;
  }
  // Held across the copy so no other thread's conversion overwrites the
  // shared text first.
  vq::ProcessLock lock;
  std::strcpy(buffer, DutTimeNumToStr(time));
  return buffer;
}

}  // extern "C"

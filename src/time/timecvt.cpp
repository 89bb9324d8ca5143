// Time converters: named pairs of functions between a time (seconds since
// the epoch) and its text, the registry that holds them, and the current
// converter through which the whole process prints and reads times.
#include <algorithm>
#include <bit>
#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstdint>
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

// Beyond this the time is not converted: the year would not fit ctime's
// text (nor time_t on some platforms).
constexpr D_REAL8 kMaxCtimeSeconds = 1e15;

// The ctime text of a time (ending in a newline) and its length, or 0 when
// the time has no such text.
std::size_t ctimeOf(D_REAL8 time, char *text, std::size_t size) {
  if (!std::isfinite(time) || std::fabs(time) > kMaxCtimeSeconds) return 0;
  vq::os::ctimeText(static_cast<std::time_t>(std::trunc(time)), text, size);
  std::size_t len = std::strlen(text);
  return len >= 20 ? len : 0;
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
//
// The text is the first 19 characters of the ctime text, the fraction as
// the fraction format prints it without its first character, and the rest
// of the ctime text without its newline. The fraction of the usual formats
// "%.0f" to "%.3f" (the default "%.3f") is composed here rather than by
// snprintf, which cost more than the ctime text itself.

// The precision N of a format that is exactly "%.Nf" with N from 0 to 3,
// or -1 for any other format (which goes to snprintf).
int utTimeCvtFullDigits = -1;

constexpr std::uint64_t kPowersOfTen[] = {1, 10, 100, 1000};
constexpr int kMaxFastDigits = 3;

int fastFractionDigits(const char *format) {
  if (format[0] == '%' && format[1] == '.' && format[2] >= '0' && format[2] <= '0' + kMaxFastDigits &&
      format[3] == 'f' && format[4] == '\0') {
    return format[2] - '0';
  }
  return -1;
}

// value as exactly width decimal digits, zeros in front.
constexpr void writeDigits(char *out, std::uint64_t value, int width) {
  for (int i = width - 1; i >= 0; --i) {
    out[i] = static_cast<char>('0' + value % 10);
    value /= 10;
  }
}

// What snprintf("%.<digits>f", value) writes for |value| < 1, without its
// first character: ".250" for 0.25, "0.250" for -0.25 (the sign goes),
// ".000" for 0.9996 (which printf rounds up to 1.000). printf rounds the
// exact binary value to nearest with ties to even; so does this, in
// integers: |value| is mantissa / 2^shift, with shift >= 53 below one, so
// mantissa * 10^digits (at most 2^53 * 1000) fits 64 bits. Returns the
// length written (at most 5).
constexpr std::size_t fractionTail(double value, int digits, char *out) {
  const auto bits = std::bit_cast<std::uint64_t>(value);
  const bool negative = (bits >> 63) != 0;
  const auto biased_exponent = static_cast<int>((bits >> 52) & 0x7ff);
  std::uint64_t mantissa = bits & ((std::uint64_t{1} << 52) - 1);
  int shift = 1074;  // subnormal
  if (biased_exponent != 0) {
    mantissa |= std::uint64_t{1} << 52;
    shift = 1075 - biased_exponent;
  }
  const std::uint64_t unit = kPowersOfTen[digits];
  const std::uint64_t scaled = mantissa * unit;
  std::uint64_t units = 0;  // scaled / 2^shift, rounded
  if (shift < 64) {
    units = scaled >> shift;
    const std::uint64_t rest = scaled & ((std::uint64_t{1} << shift) - 1);
    const std::uint64_t half = std::uint64_t{1} << (shift - 1);
    if (rest > half || (rest == half && (units & 1) != 0)) ++units;
  }  // else scaled < 2^63 <= half: rounds to 0
  std::size_t used = 0;
  if (negative) out[used++] = static_cast<char>('0' + units / unit);  // the "0" or "1" of "-0.250"
  if (digits > 0) {
    out[used++] = '.';
    writeDigits(out + used, units % unit, digits);
    used += static_cast<std::size_t>(digits);
  }
  return used;
}

static_assert([] {
  char out[8] = {};
  return fractionTail(0.25, 3, out) == 4 && out[0] == '.' && out[1] == '2' && out[2] == '5' && out[3] == '0';
}());

// ---- "full": the day of the latest conversions ---------------------------------------------
//
// Within one local day whose offset from UTC stays the same, the ctime
// texts differ only in the clock, which follows from the seconds since the
// day's midnight; so the day's date and year are kept and only the clock is
// written. A day is kept once ctime has shown its first and its last second
// as 00:00:00 and 23:59:59 of the same date, 86399 s apart; a day with a
// daylight-saving change or a leap second fails that and is converted by
// ctime second by second. The check is made at the second conversion in a
// day, so times in scattered days cost one ctime each, as without the kept
// day.
//
// A zone whose offset changed and changed back within one day would pass
// the check. The time zone database has no such zone (none has two changes
// within two days between 1800 and 2200), but a TZ value that spells out
// its own daylight-saving rules ("AAA5BBB,J60/2,J60/5": three hours of
// daylight saving on 1 March) can; so under a TZ with rules (a comma) no
// day is kept, and every text comes from ctime.
//
// The kept day belongs to the value of TZ it was found under, which is
// looked at before a day serves a text (or is confirmed). When TZ has
// changed, the day is dropped and the runtime made to read TZ again (mktime
// sets the zone as tzset does), so that no text comes from a zone the
// runtime read before the change. A change of zone that TZ does not show
// (the system's zone file replaced, or TZ changed and changed back around
// a tzset between two conversions) reaches the text at the next day.

constexpr std::size_t kDateSize = 11;  // "Thu Mar 15 "
constexpr std::size_t kClockAt = 11;   // "12:34:56"
constexpr std::size_t kRestAt = 19;    // " 2001\n"
constexpr std::size_t kRestSize = 24;
constexpr std::int64_t kDay = 86400;
constexpr std::size_t kZoneSize = 256;

struct KeptDay {
  enum class State { None, Candidate, Kept, Refused };
  State state = State::None;
  std::int64_t start = 0;  // the time of the day's 00:00:00
  char date[kDateSize] = {};
  char rest[kRestSize] = {};
  std::size_t rest_len = 0;
};

KeptDay utTimeCvtFullDay;
bool utTimeCvtFullZoneKnown = false;  // the fields below hold the TZ of the kept day
bool utTimeCvtFullZoneSet = false;
char utTimeCvtFullZone[kZoneSize];

// Whether a day may be kept under the present TZ. A changed TZ drops the
// kept day and has the runtime read the zone again; a TZ with rules of its
// own, or too long to compare, keeps no day at all.
bool followTimeZone() {
  const char *tz = std::getenv("TZ");
  const bool unkept = tz != nullptr && (std::strlen(tz) >= kZoneSize || std::strchr(tz, ',') != nullptr);
  if (!unkept && utTimeCvtFullZoneKnown &&
      (tz == nullptr ? !utTimeCvtFullZoneSet : utTimeCvtFullZoneSet && std::strcmp(tz, utTimeCvtFullZone) == 0)) {
    return true;
  }
  utTimeCvtFullDay = KeptDay{};
  utTimeCvtFullZoneKnown = false;
  if (unkept) return false;
  std::tm probe{};
  probe.tm_year = 70;
  probe.tm_mday = 1;
  probe.tm_isdst = -1;
  (void)std::mktime(&probe);
  utTimeCvtFullZoneSet = tz != nullptr;
  if (tz != nullptr) std::memcpy(utTimeCvtFullZone, tz, std::strlen(tz) + 1);
  utTimeCvtFullZoneKnown = true;
  return true;
}

// The seconds since midnight that a ctime text's clock shows, or -1.
std::int64_t clockSeconds(const char *text) {
  const char *c = text + kClockAt;
  for (int i : {0, 1, 3, 4, 6, 7}) {
    if (c[i] < '0' || c[i] > '9') return -1;
  }
  if (c[2] != ':' || c[5] != ':') return -1;
  auto two = [c](int at) { return (c[at] - '0') * 10 + (c[at + 1] - '0'); };
  return two(0) * 3600 + two(3) * 60 + two(6);
}

bool sameDay(const KeptDay &day, const char *text, std::size_t len) {
  return len - kRestAt == day.rest_len && std::memcmp(text, day.date, kDateSize) == 0 &&
         std::memcmp(text + kRestAt, day.rest, day.rest_len) == 0;
}

// Whether ctime shows the time as the given clock on the kept day's date.
bool ctimeShows(std::int64_t time, const char *clock) {
  char text[64];
  std::size_t len = ctimeOf(static_cast<D_REAL8>(time), text, sizeof text);
  return len != 0 && sameDay(utTimeCvtFullDay, text, len) && std::memcmp(text + kClockAt, clock, 8) == 0;
}

// Whether the time falls in the kept or the candidate day.
bool inKeptDay(std::int64_t whole) {
  const KeptDay &day = utTimeCvtFullDay;
  if (day.state != KeptDay::State::Kept && day.state != KeptDay::State::Candidate) return false;
  return whole - day.start >= 0 && whole - day.start < kDay;
}

// The kept day's text for a time within it ("Thu Mar 15 12:34:56 2001\n"),
// confirming a candidate first; 0 when there is no such day.
std::size_t keptDayText(std::int64_t whole, char *text) {
  KeptDay &day = utTimeCvtFullDay;
  if (!inKeptDay(whole)) return 0;
  const std::int64_t seconds = whole - day.start;
  if (day.state == KeptDay::State::Candidate) {
    const bool whole_day = ctimeShows(day.start, "00:00:00") && ctimeShows(day.start + kDay - 1, "23:59:59");
    day.state = whole_day ? KeptDay::State::Kept : KeptDay::State::Refused;
    if (!whole_day) return 0;
  }
  std::memcpy(text, day.date, kDateSize);
  char *clock = text + kClockAt;
  writeDigits(clock, static_cast<std::uint64_t>(seconds / 3600), 2);
  clock[2] = ':';
  writeDigits(clock + 3, static_cast<std::uint64_t>(seconds / 60 % 60), 2);
  clock[5] = ':';
  writeDigits(clock + 6, static_cast<std::uint64_t>(seconds % 60), 2);
  std::memcpy(text + kRestAt, day.rest, day.rest_len);
  return kRestAt + day.rest_len;
}

// Takes the day of a ctime text as the candidate to keep, unless it is the
// day already refused.
void noteDay(std::int64_t whole, const char *text, std::size_t len) {
  KeptDay &day = utTimeCvtFullDay;
  const std::int64_t seconds = clockSeconds(text);
  if (seconds < 0 || len - kRestAt > kRestSize) return;
  if (day.state == KeptDay::State::Refused && sameDay(day, text, len)) return;
  day.state = KeptDay::State::Candidate;
  day.start = whole - seconds;
  std::memcpy(day.date, text, kDateSize);
  day.rest_len = len - kRestAt;
  std::memcpy(day.rest, text + kRestAt, day.rest_len);
}

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
    utTimeCvtFullDigits = fastFractionDigits(utTimeCvtFullFormat);
  }
  *str_return = utTimeCvtFullStr;
  if (!std::isfinite(time) || std::fabs(time) > kMaxCtimeSeconds) {
    std::snprintf(utTimeCvtFullStr, kFullSize, "error");
    return D_FALSE;
  }
  const D_REAL8 whole = std::trunc(time);
  const auto whole_seconds = static_cast<std::int64_t>(whole);
  char text[64];
  std::size_t text_len = 0;
  // TZ is looked at only when a day could serve: a change drops the day.
  if (inKeptDay(whole_seconds) && followTimeZone()) text_len = keptDayText(whole_seconds, text);
  if (text_len == 0) {
    text_len = ctimeOf(whole, text, sizeof text);
    if (text_len == 0) {
      std::snprintf(utTimeCvtFullStr, kFullSize, "error");
      return D_FALSE;
    }
    noteDay(whole_seconds, text, text_len);
  }
  const D_REAL8 fraction = time - whole;  // within (-1, 1)
  char fraction_text[40];
  const char *tail = fraction_text;
  std::size_t tail_len = 0;
  if (utTimeCvtFullDigits >= 0) {
    tail_len = fractionTail(fraction, utTimeCvtFullDigits, fraction_text);
  } else {
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#endif
    int n = std::snprintf(fraction_text, sizeof fraction_text, utTimeCvtFullFormat, fraction);
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
    if (n > 0) {
      tail = fraction_text + 1;
      tail_len = std::min(static_cast<std::size_t>(n), sizeof fraction_text - 1) - 1;
    }
  }
  // "Wed Jun 30 21:49:08" + ".250" + " 1993\n", cut to the buffer.
  std::size_t used = 0;
  auto append = [&used](const char *piece, std::size_t count) {
    count = std::min(count, kFullSize - 1 - used);
    std::memcpy(utTimeCvtFullStr + used, piece, count);
    used += count;
  };
  append(text, kRestAt);
  append(tail, tail_len);
  append(text + kRestAt, text_len - kRestAt);
  VQ_EXPECT(used > 0 && utTimeCvtFullStr[used - 1] == '\n',
            "utTimeCvtFullStr[D_C_STRLEN(utTimeCvtFullStr) - 1] == '\\n'", kTimeFile);
  if (used > 0 && utTimeCvtFullStr[used - 1] == '\n') --used;
  utTimeCvtFullStr[used] = '\0';
  return D_TRUE;
}

void fullCleanup() {
  vq::ProcessLock lock;
  if (utTimeCvtFullStr != nullptr) DutFreeCheck(utTimeCvtFullStr, "utTimeCvtFullStr", kTimeFile, __LINE__);
  utTimeCvtFullStr = nullptr;
  utTimeCvtFullDay = KeptDay{};
  utTimeCvtFullZoneKnown = false;
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
  if (ctimeOf(time, text, sizeof text) == 0) {
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

// The base time's local calendar date.
TimeFields baseFields() {
  D_REAL8 base = vq::time::baseTime();
  std::time_t t = static_cast<std::time_t>(std::isfinite(base) ? base : 0.0);
  TimeFields fields{1970, 0, 1, 0, 0, 0.0, false};
  std::tm local{};
  if (vq::os::localCalendar(t, &local)) {
    fields.year = local.tm_year + 1900;
    fields.month = local.tm_mon;
    fields.day = local.tm_mday;
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

// Byte order and real-number format conversion.
//
// Each conversion reads the stored bytes into an integer holding the value
// in its logical bit layout (sign in the top bit), works on that integer
// with shifts and masks only, and writes the result back in the byte order
// of the target. Nothing goes through a union or a pointer cast, and every
// shift count stays inside the width of its operand.
#include "vqutil/format.h"

#include <bit>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "vqutil/error.h"
#include "vqutil/output.h"

// The conversions are a few instructions each: their pieces are forced
// inline, and the rare paths (warnings, assertions) are kept out of line.
#if defined(__GNUC__) || defined(__clang__)
#define VQ_INLINE [[gnu::always_inline]] inline
#define VQ_COLD [[gnu::cold, gnu::noinline]]
#else
#define VQ_INLINE inline
#define VQ_COLD
#endif
// At -O2 GCC vectorises only loops it deems very cheap, which leaves out
// the int-to-float conversion of the IBM fast path; the array loops ask
// for its full cost model, and keep their copy loops as vector moves
// (a memcpy of a block becomes a slow `rep movs`).
// x86-64 builds carry a second, AVX2 copy of the array loops, chosen at
// run time.
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define VQ_AVX2_PATH 1
#endif
#if defined(__GNUC__) && !defined(__clang__)
#define VQ_VECTORISE gnu::optimize("vect-cost-model=dynamic", "no-tree-loop-distribute-patterns")
#else
#define VQ_VECTORISE
#endif

namespace {

constexpr const char *kFile = "format.c";

constexpr D_INT4 kHostOrder =
    std::endian::native == std::endian::little ? D_INT_LITTLE_ENDIAN : D_INT_BIG_ENDIAN;

constexpr std::uint32_t kSign32 = 0x80000000u;
constexpr std::uint64_t kSign64 = 0x8000000000000000u;

// ---- Byte order ---------------------------------------------------------

// Written as shifts so that the compilers turn them into one bswap.
constexpr std::uint16_t swap16(std::uint16_t v) {
  return static_cast<std::uint16_t>((v >> 8) | (v << 8));
}

// The builtins, where there are any, because the vectoriser turns them
// into one byte shuffle; it sees the shifts before they become a bswap.
constexpr std::uint32_t swap32(std::uint32_t v) {
#if defined(__GNUC__) || defined(__clang__)
  return __builtin_bswap32(v);
#else
  return ((v & 0x000000FFu) << 24) | ((v & 0x0000FF00u) << 8) | ((v & 0x00FF0000u) >> 8) |
         ((v & 0xFF000000u) >> 24);
#endif
}

constexpr std::uint64_t swap64(std::uint64_t v) {
#if defined(__GNUC__) || defined(__clang__)
  return __builtin_bswap64(v);
#else
  return (static_cast<std::uint64_t>(swap32(static_cast<std::uint32_t>(v))) << 32) |
         swap32(static_cast<std::uint32_t>(v >> 32));
#endif
}

// VAX storage: little-endian 16-bit words, the most significant word first.
// Read as a little-endian integer, that puts the words in reverse order.
constexpr std::uint32_t vaxWords32(std::uint32_t v) { return (v << 16) | (v >> 16); }

// As the four bytes swapped in each word, then all eight reversed: the
// reversal is one byte shuffle in vector code, where a word rotation is
// six shifts and masks.
constexpr std::uint64_t vaxWords64(std::uint64_t v) {
  constexpr std::uint64_t kLow = 0x00FF00FF00FF00FFu;
  return swap64(((v >> 8) & kLow) | ((v & kLow) << 8));
}

// Failed checks and warnings are rare; keeping them out of line leaves the
// conversion loops free of call set-up.
VQ_COLD void failAssert(const char *text, D_INT4 line) {
  DutAssert(0, text, kFile, line);
}

VQ_COLD void warn(const char *text) { DutWarning("%s", text); }

VQ_COLD D_PRINTF_FORMAT(1, 0) void warnExp(const char *format, int exponent) {
  DutWarning(format, exponent);
}

// ---- 4-byte kernels on logical bit patterns -----------------------------

// One added to the byte of the sign and the upper seven exponent bits: two
// more in the exponent moves 1.f with bias 127 to 0.1f with bias 128. The
// byte is not range-checked, so exponents 254 and 255 carry into the sign
// and out of the word.
constexpr std::uint32_t ieeeToDecF(std::uint32_t v) { return v + 0x01000000u; }
constexpr std::uint32_t decFToIeee(std::uint32_t v) { return v - 0x01000000u; }

VQ_INLINE constexpr std::uint32_t ieeeToIbm32(std::uint32_t v) {
  // Align the binary point on a hex digit: with t = exponent + 1, the
  // significand drops 3 - t mod 4 low bits and the characteristic is
  // t / 4 + 33. Computed rather than branched on, since the low exponent
  // bits of real data are as good as random.
  const std::uint32_t t = ((v >> 23) & 0xFFu) + 1;
  const std::uint32_t m = (v & 0x007FFFFFu) | 0x00800000u;
  return (v & kSign32) | (((t >> 2) + 33) << 24) | (m >> (~t & 3u));
}

// Leading zero bits (0..3) of a non-zero hex digit, by comparisons rather
// than a count instruction, which vector units lack.
template <typename W>
VQ_INLINE constexpr W digitZeros(W d) {
  return static_cast<W>(d < 8) + static_cast<W>(d < 4) + static_cast<W>(d < 2);
}

VQ_INLINE constexpr std::uint32_t ibmToIeee32Kernel(std::uint32_t sign, std::int32_t e, std::uint32_t f) {
  // Normalise on the first hex digit: its leading zero bits move the
  // fraction left and lower the exponent. A zero digit keeps the fraction
  // and gives exponent 4E - 129, one above the unshifted case.
  const std::uint32_t d = f >> 20;
  const std::uint32_t lz = d == 0 ? 0 : digitZeros(d);
  const std::int32_t drop = d == 0 ? -1 : static_cast<std::int32_t>(lz);
  f <<= lz;
  // Only the low eight bits of the exponent are kept (E = 33 with a leading
  // digit of 1 gives all ones).
  const std::uint32_t field = static_cast<std::uint32_t>(4 * e - 130 - drop) & 0xFFu;
  return sign | (f & 0x007FFFFFu) | (field << 23);
}

// Exponents outside 33..96 do not fit IEEE: warn and clamp. Out of line,
// so that the common path makes no call.
VQ_COLD std::uint32_t ibmToIeee32Clamped(std::uint32_t v) {
  std::int32_t e = static_cast<std::int32_t>((v >> 24) & 0x7Fu);
  if (e < 33) {
    warn("DutSwapReal4Ibm370ToIeee: IBM_370 exponent underflows IEEE exponent\n");
    e = 33;
  } else {
    warn("DutSwapReal4Ibm370ToIeee: IBM_370 exponent overflows IEEE exponent\n");
    e = 96;
  }
  return ibmToIeee32Kernel(v & kSign32, e, v & 0x00FFFFFFu);
}

// IBM single to IEEE for arrays. The 24-bit fraction converts to float
// exactly and comes out normalised, so only the exponent moves (by
// 4 * characteristic - 280, the float's own bias included). Flagged for the
// exact path: a leading hex digit of zero (kept unnormalised there) and
// characteristics outside 34..96 (clamped, or below the normal range).
// Both tests are one signed compare: the characteristic is offset so that
// 34..96 lands at the bottom of the signed range, and a zero digit sets
// every bit. The flag is a full mask, which vector code makes for free.
VQ_INLINE std::uint32_t ibmToIeee32Bulk(std::uint32_t v, std::uint32_t &odd) {
  const std::uint32_t f = v & 0x00FFFFFFu;
  const std::uint32_t t = v & 0x7F000000u;
  const std::uint32_t key = (t + (kSign32 - (34u << 24))) | (0u - static_cast<std::uint32_t>(f < 0x00100000u));
  odd |= 0u - static_cast<std::uint32_t>(static_cast<std::int32_t>(key) >
                                         static_cast<std::int32_t>(kSign32 + (62u << 24)));
  const auto bits = std::bit_cast<std::uint32_t>(static_cast<float>(static_cast<std::int32_t>(f)));
  return (v & kSign32) | (bits + t + t - (280u << 23));
}

// IBM single straight to DEC F for arrays: the IEEE step above, then the
// DEC one. An unflagged non-zero value never gives an IEEE zero, so the
// DEC step's zero test is not needed.
VQ_INLINE std::uint32_t ibmToDecF32Bulk(std::uint32_t v, std::uint32_t &odd) {
  return ieeeToDecF(ibmToIeee32Bulk(v, odd));
}

VQ_INLINE std::uint32_t ibmToIeee32(std::uint32_t v, std::uint32_t &rare) {
  const std::int32_t e = static_cast<std::int32_t>((v >> 24) & 0x7Fu);
  rare |= static_cast<std::uint32_t>(e < 33) | static_cast<std::uint32_t>(e > 96);
  return ibmToIeee32Kernel(v & kSign32, e, v & 0x00FFFFFFu);
}

// ---- 8-byte kernels ----------------------------------------------------------

constexpr std::uint64_t kFrac52 = 0x000FFFFFFFFFFFFFu;
constexpr std::uint64_t kFrac55 = 0x007FFFFFFFFFFFFFu;

// The slow paths below handle the exponents that assert or warn; they are
// out of line so that the common path makes no call. The common paths
// compute their result without a branch and only flag (`rare`) a value
// that needs its slow path, so that array loops stay vectorisable.

VQ_COLD std::uint64_t ieeeToDecDSlow(std::uint64_t v) {
  const std::uint64_t sign = v & kSign64;
  const std::int32_t ieee_exp = static_cast<std::int32_t>((v >> 52) & 0x7FFu) - 1023;
  if (!D_IN_RANGE(ieee_exp, -1022, 1024)) failAssert("D_IN_RANGE(ieee_exp, -1022, 1024)", __LINE__);
  std::uint32_t dec_exp;
  if (ieee_exp >= 127) {
    warnExp("DutSwapReal8IeeeToDecD: IEEE exponent %d cannot fit in DEC_D exponent.\n", ieee_exp);
    dec_exp = 255;
  } else {
    dec_exp = static_cast<std::uint32_t>(ieee_exp + 129) & 0xFFu;
  }
  return sign | (static_cast<std::uint64_t>(dec_exp) << 55) | ((v & kFrac52) << 3);
}

// The common paths work on the exponent field in 64-bit lanes (no 32-bit
// arithmetic to narrow to and widen from in vector code): field f stands
// for f - 1023, in range for fields 1..1149, and f - 1023 + 129 is f + 130
// modulo 256.
VQ_INLINE std::uint64_t ieeeToDecD(std::uint64_t v, std::uint64_t &rare) {
  const std::uint64_t field = (v >> 52) & 0x7FFu;
  rare |= std::uint64_t{0} - static_cast<std::uint64_t>(field - 1 > 1148);
  // No underflow check: exponents below -128 wrap.
  return (v & kSign64) | (((field + 130) & 0xFFu) << 55) | ((v & kFrac52) << 3);
}

VQ_COLD std::uint64_t ieeeToDecGSlow(std::uint64_t v) {
  const std::uint64_t sign = v & kSign64;
  std::int32_t ieee_exp = static_cast<std::int32_t>((v >> 52) & 0x7FFu) - 1023;
  if (!D_IN_RANGE(ieee_exp, -1022, 1024)) failAssert("D_IN_RANGE(ieee_exp, -1022, 1024)", __LINE__);
  if (ieee_exp >= 1023) {
    // The text names the D conversion; hosts match on it as it stands.
    warnExp("DutSwapReal8IeeeToDecD: IEEE exponent %d cannot fit in DEC_G exponent.\n", ieee_exp);
    ieee_exp = 1022;
  }
  const std::int32_t dec_g_exp = ieee_exp + 1025;
  if (!(dec_g_exp > 0)) failAssert("dec_g_exp > 0", __LINE__);
  return sign | (static_cast<std::uint64_t>(dec_g_exp) << 52) | (v & kFrac52);
}

// Fields 1..2045; the DEC G exponent is the field plus two.
VQ_INLINE std::uint64_t ieeeToDecG(std::uint64_t v, std::uint64_t &rare) {
  const std::uint64_t field = (v >> 52) & 0x7FFu;
  rare |= std::uint64_t{0} - static_cast<std::uint64_t>(field - 1 > 2044);
  return (v & kSign64) | ((field + 2) << 52) | (v & kFrac52);
}

// DEC exponent d - 129 taken as a signed byte (so 0 wraps to +127) is
// ((d - 1) mod 256) - 128, which makes the IEEE field 895 + (d - 1) mod 256.
VQ_INLINE constexpr std::uint64_t decDToIeee(std::uint64_t v) {
  const std::uint64_t dec_exp = (v >> 55) & 0xFFu;
  return (v & kSign64) | ((((dec_exp - 1) & 0xFFu) + 895) << 52) | ((v & kFrac55) >> 3);
}

constexpr std::uint64_t decGToIeee(std::uint64_t v) {
  const std::uint64_t sign = v & kSign64;
  const std::uint64_t field = ((v >> 52) - 2) & 0x7FFu;
  return sign | (field << 52) | (v & kFrac52);
}

// DEC D exponent d - 128 taken as a signed byte is d - 128 itself, so the
// DEC G exponent is d + 896.
VQ_INLINE constexpr std::uint64_t decDToDecG(std::uint64_t v) {
  const std::uint64_t dec_exp = (v >> 55) & 0xFFu;
  return (v & kSign64) | ((dec_exp + 896) << 52) | ((v & kFrac55) >> 3);
}

VQ_COLD std::uint64_t decGToDecDSlow(std::uint64_t v) {
  const std::uint64_t sign = v & kSign64;
  const std::int32_t dec_g_exp = static_cast<std::int32_t>((v >> 52) & 0x7FFu) - 1024;
  if (!D_IN_RANGE(dec_g_exp, -1023, 1023)) failAssert("D_IN_RANGE(dec_g_exp, -1023, 1023)", __LINE__);
  std::uint32_t dec_d_exp;
  if (dec_g_exp >= 127) {
    warnExp("DutSwapReal8DecGToDecD: DEC_G exponent %d cannot fit in DEC_D exponent.\n", dec_g_exp);
    dec_d_exp = 254;
  } else {
    dec_d_exp = static_cast<std::uint32_t>(dec_g_exp + 128) & 0xFFu;
  }
  return sign | (static_cast<std::uint64_t>(dec_d_exp) << 55) | ((v & kFrac52) << 3);
}

// In 64-bit lanes throughout: the exponent field g stands for g - 1024,
// in range for fields 1..1150, and g - 1024 + 128 is g + 128 modulo 256.
VQ_INLINE std::uint64_t decGToDecD(std::uint64_t v, std::uint64_t &rare) {
  const std::uint64_t g = (v >> 52) & 0x7FFu;
  rare |= std::uint64_t{0} - static_cast<std::uint64_t>(g - 1 > 1149);
  // No underflow check: exponents below -128 wrap.
  return (v & kSign64) | (((g + 128) & 0xFFu) << 55) | ((v & kFrac52) << 3);
}

constexpr std::uint64_t ibm64Assemble(std::uint64_t sign, std::int32_t x, std::uint64_t m) {
  const auto ibm_exp = static_cast<std::uint64_t>(((x + 1) / 4 - 64) & 0x7F);
  return sign | (ibm_exp << 56) | m;
}

// The 53-bit significand moves left into the 56-bit fraction, so nothing is
// lost on this side: (exponent + 1) mod 4 is the shift, and
// x = exponent + 4 - shift makes x + 1 a multiple of four.
struct Ibm64Parts {
  std::uint64_t sign;
  std::int32_t x;
  std::uint64_t m;
};

VQ_INLINE constexpr Ibm64Parts ibm64Parts(std::uint64_t v) {
  const std::uint32_t exponent = static_cast<std::uint32_t>((v >> 52) & 0x7FFu);
  const std::uint32_t shift = (exponent + 1) & 3u;
  return {v & kSign64, static_cast<std::int32_t>(exponent + 4 - shift),
          ((v & kFrac52) | (std::uint64_t{1} << 52)) << shift};
}

// IBM double from an IEEE exponent field and 52-bit fraction, as
// ibm64Parts and ibm64Assemble in 64-bit lanes, flagging what would clamp.
VQ_INLINE constexpr std::uint64_t ibm64FromField(std::uint64_t sign, std::uint64_t field, std::uint64_t frac,
                                                 std::uint64_t &odd) {
  const std::uint64_t shift = (field + 1) & 3u;
  const std::uint64_t x = field + 4 - shift;
  odd |= std::uint64_t{0} - static_cast<std::uint64_t>(x - 767 > 508);
  return sign | ((((x + 1) >> 2) - 64) & 0x7Fu) << 56 | ((frac | (std::uint64_t{1} << 52)) << shift);
}

VQ_COLD std::uint64_t ieeeToIbm64Slow(std::uint64_t v) {
  Ibm64Parts p = ibm64Parts(v);
  if (p.x < 767) {
    warn("DutSwapReal8IeeeToIbm370: IEEE exponent underflows IBM_370 exponent\n");
    p.x = 767;
  } else {
    warn("DutSwapReal8IeeeToIbm370: IEEE exponent overflows IBM_370 exponent\n");
    p.x = 1275;
  }
  return ibm64Assemble(p.sign, p.x, p.m);
}

VQ_INLINE std::uint64_t ieeeToIbm64(std::uint64_t v, std::uint64_t &rare) {
  return ibm64FromField(v & kSign64, (v >> 52) & 0x7FFu, v & kFrac52, rare);
}

VQ_INLINE constexpr std::uint64_t ibmToIeee64(std::uint64_t v) {
  const std::uint64_t sign = v & kSign64;
  const auto e = static_cast<std::int64_t>((v >> 56) & 0x7Fu);
  std::uint64_t f = v & 0x00FFFFFFFFFFFFFFu;
  // The first hex digit's leading zeros (0..3) decide a right shift of
  // 3 - zeros and exponent 4E + 766 - zeros; a zero digit keeps the
  // fraction with exponent 4E + 767.
  const std::uint64_t d = f >> 52;
  const std::uint64_t lz = digitZeros(d);
  f >>= d == 0 ? 0 : 3 - lz;
  const std::int64_t drop = d == 0 ? -1 : static_cast<std::int64_t>(lz);
  const auto field = static_cast<std::uint64_t>(4 * e + 766 - drop) & 0x7FFu;
  return sign | (f & kFrac52) | (field << 52);
}

// Straight between DEC and IBM doubles for arrays, in 64-bit lanes
// throughout. Each gives the bits of the two steps through IEEE for every
// value it does not flag; flagged values take those steps one by one.

// DEC D exponents 1..255 are IEEE fields 895..1149; 0 is flagged.
VQ_INLINE constexpr std::uint64_t decDToIbm64Bulk(std::uint64_t v, std::uint64_t &odd) {
  const std::uint64_t e = (v >> 55) & 0xFFu;
  odd |= std::uint64_t{0} - static_cast<std::uint64_t>(e == 0);
  return ibm64FromField(v & kSign64, e + 894, (v & kFrac55) >> 3, odd);
}

VQ_INLINE constexpr std::uint64_t decGToIbm64Bulk(std::uint64_t v, std::uint64_t &odd) {
  return ibm64FromField(v & kSign64, ((v >> 52) - 2) & 0x7FFu, v & kFrac52, odd);
}

// IBM double with a non-zero leading digit: IEEE field 4E + 766 - zeros,
// and the fraction shifted right by 3 - zeros.
struct IbmLead {
  std::uint64_t field;
  std::uint64_t zeros;
  std::uint64_t frac;
};

// The zeros by comparisons (the shift count they feed stays in 64-bit
// lanes that way; GCC narrows one computed by arithmetic to 32 bits and
// widens it again).
VQ_INLINE constexpr IbmLead ibmLead(std::uint64_t v, std::uint64_t &odd) {
  const std::uint64_t f = v & 0x00FFFFFFFFFFFFFFu;
  const std::uint64_t d = f >> 52;
  odd |= std::uint64_t{0} - static_cast<std::uint64_t>(d == 0);
  const std::uint64_t lz = digitZeros(d);
  return {4 * ((v >> 56) & 0x7Fu) + 766 - lz, lz, f};
}

// IEEE fields above 1149 would clamp in DEC D.
VQ_INLINE constexpr std::uint64_t ibmToDecDBulk(std::uint64_t v, std::uint64_t &odd) {
  const IbmLead l = ibmLead(v, odd);
  odd |= std::uint64_t{0} - static_cast<std::uint64_t>(l.field > 1149);
  return (v & kSign64) | ((l.field - 894) & 0xFFu) << 55 | ((l.frac << l.zeros) & (kFrac52 << 3));
}

// Every IEEE field an IBM double gives fits DEC G.
VQ_INLINE constexpr std::uint64_t ibmToDecGBulk(std::uint64_t v, std::uint64_t &odd) {
  const IbmLead l = ibmLead(v, odd);
  return (v & kSign64) | (l.field + 2) << 52 | ((l.frac >> (3 - l.zeros)) & kFrac52);
}

// ---- Conversions on stored words ----------------------------------------

// A stored word is the value's bytes read as a host integer. Byte orders
// are template arguments, so that a loop over many values decides them
// once and keeps only the shifts.
template <D_INT4 Order, typename W>
VQ_INLINE constexpr W fromOrder(W raw) {
  if constexpr (Order == kHostOrder) return raw;
  else if constexpr (sizeof(W) == 4) return swap32(raw);
  else return swap64(raw);
}
template <D_INT4 Order, typename W>
VQ_INLINE constexpr W toOrder(W v) { return fromOrder<Order>(v); }

template <typename W>
VQ_INLINE constexpr W vaxWords(W v) {
  if constexpr (sizeof(W) == 4) return vaxWords32(v);
  else return vaxWords64(v);
}
template <typename W>
VQ_INLINE constexpr W fromVax(W raw) { return vaxWords(fromOrder<D_INT_LITTLE_ENDIAN>(raw)); }
template <typename W>
VQ_INLINE constexpr W toVax(W v) { return toOrder<D_INT_LITTLE_ENDIAN>(vaxWords(v)); }

// Zero or negative zero: IEEE inputs of either give all-zero bytes.
template <typename W>
VQ_INLINE constexpr bool isZero(W v) { return (v << 1) == 0; }

enum class Side { Ieee, Dec, Ibm };

constexpr bool orderOk(Side side, D_INT4 f) {
  switch (side) {
    case Side::Ieee: return f == D_INT_LITTLE_ENDIAN || f == D_INT_BIG_ENDIAN;
    case Side::Dec: return f == D_INT_LITTLE_ENDIAN;
    case Side::Ibm: return f == D_INT_BIG_ENDIAN;
  }
  return false;
}

// Each conversion is a type with
//   Word, from, to, kRare (whether any value can take the slow path),
//   fast<In, Out>(raw, rare): the result, and rare set non-zero when the
//     value warns or asserts, in which case the result is not used;
//   slow<In, Out>(raw): the full conversion of such a value (only with kRare).
// `convert` runs one value through both.
template <typename C, D_INT4 In, D_INT4 Out>
VQ_INLINE typename C::Word convert(typename C::Word raw) {
  typename C::Word rare = 0;
  const auto result = C::template fast<In, Out>(raw, rare);
  if constexpr (C::kRare) {
    if (rare != 0) [[unlikely]] return C::template slow<In, Out>(raw);
  }
  return result;
}

// DEC F straight to IBM: the two steps through IEEE in one, the zero of
// the IEEE step included (DEC exponent 2 with no fraction bits).
VQ_INLINE constexpr std::uint32_t decFToIbm32(std::uint32_t v) {
  // Masks rather than selects: one compare and an and-not each in vector
  // code.
  const std::uint32_t u = decFToIeee(v);
  return ieeeToIbm32(u) & ~(0u - static_cast<std::uint32_t>(isZero(u)));
}

// IEEE -> a foreign format: zero stays, negative zero becomes zero.
template <typename W, Side To, auto Kernel, auto Store, auto Slow = nullptr>
struct FromIeee {
  using Word = W;
  static constexpr Side from = Side::Ieee;
  static constexpr Side to = To;
  static constexpr bool kRare = Slow != nullptr;
  static constexpr bool kFlags = kRare;
  template <D_INT4 In, D_INT4>
  VQ_INLINE static W fast(W raw, W &rare) {
    const W v = fromOrder<In>(raw);
    W flag = 0;
    const W r = Store(Kernel(v, flag));
    rare |= flag & (W{0} - static_cast<W>(!isZero(v)));
    return isZero(v) ? W{0} : r;
  }
  template <D_INT4 In, D_INT4 Out>
  VQ_INLINE static W bulk(W raw, W &odd) { return fast<In, Out>(raw, odd); }
  template <D_INT4 In, D_INT4>
  static W slow(W raw) {
    if constexpr (kRare) return Store(Slow(fromOrder<In>(raw)));
    else return raw;
  }
};

// Kernel over the loaded value, Store in the output order; all-zero bytes
// stay zero and are never flagged. Tested after loading: a reordered zero
// is zero, and the vectoriser then sees one value instead of two. A mask
// rather than a select: GCC will not if-convert a select around a float
// conversion, which could trap.
template <typename W, auto Load, auto Kernel, auto Store, D_INT4 Out>
VQ_INLINE W keepZero(W raw, W &flags) {
  const W v = Load(raw);
  W flag = 0;
  const W r = Store.template operator()<Out>(Kernel(v, flag));
  const W zero = W{0} - static_cast<W>(v == 0);
  flags |= flag & ~zero;
  return r & ~zero;
}

// A foreign format -> IEEE or DEC: all-zero bytes stay as they are.
template <typename W, Side From, Side To, auto Load, auto Kernel, auto Store, auto Slow = nullptr>
struct FromForeign {
  using Word = W;
  static constexpr Side from = From;
  static constexpr Side to = To;
  static constexpr bool kRare = Slow != nullptr;
  static constexpr bool kFlags = kRare;
  template <D_INT4, D_INT4 Out>
  VQ_INLINE static W fast(W raw, W &rare) {
    return keepZero<W, Load, Kernel, Store, Out>(raw, rare);
  }
  template <D_INT4 In, D_INT4 Out>
  VQ_INLINE static W bulk(W raw, W &odd) { return fast<In, Out>(raw, odd); }
  template <D_INT4, D_INT4 Out>
  static W slow(W raw) {
    if constexpr (kRare) return Store.template operator()<Out>(Slow(Load(raw)));
    else return raw;
  }
};

// An exact conversion C with an array path of its own: Bulk works on the
// loaded value and flags what it does not cover, which the array loop then
// gives to C value by value. All-zero bytes stay zero, as in every
// conversion from a foreign format.
template <typename C, auto Load, auto Bulk, auto Store>
struct WithBulk : C {
  using W = typename C::Word;
  static constexpr bool kFlags = true;
  template <D_INT4, D_INT4 Out>
  VQ_INLINE static W bulk(W raw, W &odd) {
    return keepZero<W, Load, Bulk, Store, Out>(raw, odd);
  }
};

// Two steps through IEEE in host order; the slow path runs them one after
// the other, so warnings come in the order the steps give them.
template <typename A, typename B>
struct Chain {
  using Word = typename A::Word;
  static constexpr Side from = A::from;
  static constexpr Side to = B::to;
  static constexpr bool kRare = A::kRare || B::kRare;
  static constexpr bool kFlags = A::kFlags || B::kFlags;
  template <D_INT4 In, D_INT4 Out>
  VQ_INLINE static Word fast(Word raw, Word &rare) {
    // Flags of their own keep one update of `rare` per value, which the
    // vectoriser recognises as a reduction.
    Word rare_a = 0;
    Word rare_b = 0;
    const Word r = B::template fast<kHostOrder, Out>(A::template fast<In, kHostOrder>(raw, rare_a), rare_b);
    rare |= rare_a | rare_b;
    return r;
  }
  template <D_INT4 In, D_INT4 Out>
  VQ_INLINE static Word bulk(Word raw, Word &odd) {
    Word odd_a = 0;
    Word odd_b = 0;
    const Word r = B::template bulk<kHostOrder, Out>(A::template bulk<In, kHostOrder>(raw, odd_a), odd_b);
    odd |= odd_a | odd_b;
    return r;
  }
  template <D_INT4 In, D_INT4 Out>
  static Word slow(Word raw) {
    return convert<B, kHostOrder, Out>(convert<A, In, kHostOrder>(raw));
  }
};

// Kernels that never flag, lifted to the (value, rare) form.
template <auto Kernel>
constexpr auto quiet = [](auto v, auto &) { return Kernel(v); };

template <typename W> constexpr auto storeVax = [](W v) { return toVax(v); };
template <typename W> constexpr auto loadVax = [](W raw) { return fromVax(raw); };
template <typename W> constexpr auto storeBig = [](W v) { return toOrder<D_INT_BIG_ENDIAN>(v); };
template <typename W> constexpr auto loadBig = [](W raw) { return fromOrder<D_INT_BIG_ENDIAN>(raw); };
template <typename W> constexpr auto storeIeee = []<D_INT4 Out>(W v) { return toOrder<Out>(v); };
template <typename W> constexpr auto storeDec = []<D_INT4>(W v) { return toVax(v); };
template <typename W> constexpr auto storeIbm = []<D_INT4>(W v) { return toOrder<D_INT_BIG_ENDIAN>(v); };

using U4 = std::uint32_t;
using U8 = std::uint64_t;

using IeeeToDecF = FromIeee<U4, Side::Dec, quiet<ieeeToDecF>, storeVax<U4>>;
using DecFToIeee = FromForeign<U4, Side::Dec, Side::Ieee, loadVax<U4>, quiet<decFToIeee>, storeIeee<U4>>;
using IeeeToIbm4 = FromIeee<U4, Side::Ibm, quiet<ieeeToIbm32>, storeBig<U4>>;
using Ibm4ToIeee =
    WithBulk<FromForeign<U4, Side::Ibm, Side::Ieee, loadBig<U4>, ibmToIeee32, storeIeee<U4>, ibmToIeee32Clamped>,
             loadBig<U4>, ibmToIeee32Bulk, storeIeee<U4>>;
using IeeeToDecD = FromIeee<U8, Side::Dec, ieeeToDecD, storeVax<U8>, ieeeToDecDSlow>;
using IeeeToDecG = FromIeee<U8, Side::Dec, ieeeToDecG, storeVax<U8>, ieeeToDecGSlow>;
using DecDToIeee = FromForeign<U8, Side::Dec, Side::Ieee, loadVax<U8>, quiet<decDToIeee>, storeIeee<U8>>;
using DecGToIeee = FromForeign<U8, Side::Dec, Side::Ieee, loadVax<U8>, quiet<decGToIeee>, storeIeee<U8>>;
// A DEC zero has no other meaning than zero, so it is not run through the
// exponent arithmetic (which would give a tiny non-zero value, or fail the
// range assertion on the G side).
using DecDToDecG = FromForeign<U8, Side::Dec, Side::Dec, loadVax<U8>, quiet<decDToDecG>, storeDec<U8>>;
using DecGToDecD = FromForeign<U8, Side::Dec, Side::Dec, loadVax<U8>, decGToDecD, storeDec<U8>, decGToDecDSlow>;
using IeeeToIbm8 = FromIeee<U8, Side::Ibm, ieeeToIbm64, storeBig<U8>, ieeeToIbm64Slow>;
using Ibm8ToIeee = FromForeign<U8, Side::Ibm, Side::Ieee, loadBig<U8>, quiet<ibmToIeee64>, storeIeee<U8>>;
using DecFToIbm4 = FromForeign<U4, Side::Dec, Side::Ibm, loadVax<U4>, quiet<decFToIbm32>, storeIbm<U4>>;
using Ibm4ToDecF = WithBulk<Chain<Ibm4ToIeee, IeeeToDecF>, loadBig<U4>, ibmToDecF32Bulk, storeDec<U4>>;
using DecDToIbm8 = WithBulk<Chain<DecDToIeee, IeeeToIbm8>, loadVax<U8>, decDToIbm64Bulk, storeIbm<U8>>;
using DecGToIbm8 = WithBulk<Chain<DecGToIeee, IeeeToIbm8>, loadVax<U8>, decGToIbm64Bulk, storeIbm<U8>>;
using Ibm8ToDecD = WithBulk<Chain<Ibm8ToIeee, IeeeToDecD>, loadBig<U8>, ibmToDecDBulk, storeDec<U8>>;
using Ibm8ToDecG = WithBulk<Chain<Ibm8ToIeee, IeeeToDecG>, loadBig<U8>, ibmToDecGBulk, storeDec<U8>>;

// ---- Calls: one value and arrays ----------------------------------------

// Null first, then the two formats; no value is touched on failure.
bool argsOk(bool null_bad, bool in_ok, bool out_ok) {
  if (null_bad) [[unlikely]] {
    DutErrNumSet(D_ERR_NULL_PTR);
    return false;
  }
  if (!in_ok || !out_ok) [[unlikely]] {
    DutErrNumSet(D_ERR_VAL_INVALID);
    return false;
  }
  return true;
}

// Calls f.template operator()<In, Out>() with checked byte orders as
// constants; a side with one allowed order is not dispatched on.
template <typename C, typename F>
VQ_INLINE void byOrders(D_INT4 in, D_INT4 out, F f) {
  auto outer = [&]<D_INT4 In>() {
    if constexpr (C::to != Side::Ieee) {
      f.template operator()<In, C::to == Side::Dec ? D_INT_LITTLE_ENDIAN : D_INT_BIG_ENDIAN>();
    } else if (out == D_INT_LITTLE_ENDIAN) {
      f.template operator()<In, D_INT_LITTLE_ENDIAN>();
    } else {
      f.template operator()<In, D_INT_BIG_ENDIAN>();
    }
  };
  if constexpr (C::from != Side::Ieee) {
    outer.template operator()<C::from == Side::Dec ? D_INT_LITTLE_ENDIAN : D_INT_BIG_ENDIAN>();
  } else if (in == D_INT_LITTLE_ENDIAN) {
    outer.template operator()<D_INT_LITTLE_ENDIAN>();
  } else {
    outer.template operator()<D_INT_BIG_ENDIAN>();
  }
}

template <typename C, D_INT4 In, D_INT4 Out>
VQ_INLINE void convertAt(unsigned char *p) {
  typename C::Word raw;
  std::memcpy(&raw, p, sizeof raw);
  raw = convert<C, In, Out>(raw);
  std::memcpy(p, &raw, sizeof raw);
}

template <typename C>
VQ_INLINE D_BOOL convertOne(void *p, D_INT4 in, D_INT4 out) {
  if (!argsOk(p == nullptr, orderOk(C::from, in), orderOk(C::to, out))) return D_FALSE;
  byOrders<C>(in, out, [p]<D_INT4 In, D_INT4 Out>() { convertAt<C, In, Out>(static_cast<unsigned char *>(p)); });
  return D_TRUE;
}

// Blocks of a fixed size go through the branch-free array path into a
// buffer; a block with a flagged value (one that warns, asserts or falls
// outside the array path's common case) is done again value by value from
// its untouched input, so the results, warnings and their order are those
// of the per-value calls.
template <typename C, D_INT4 In, D_INT4 Out>
VQ_INLINE void convertBlocks(unsigned char *p, std::size_t count) {
  using W = typename C::Word;
  constexpr std::size_t kBlock = 256;
  std::size_t at = 0;
  for (; at + kBlock <= count; at += kBlock) {
    unsigned char *block = p + at * sizeof(W);
    if constexpr (!C::kFlags) {
      // Nothing to redo: convert in place.
      for (std::size_t i = 0; i < kBlock; ++i) convertAt<C, In, Out>(block + i * sizeof(W));
      continue;
    }
    W out[kBlock];
    W odd = 0;
    for (std::size_t i = 0; i < kBlock; ++i) {
      W raw;
      std::memcpy(&raw, block + i * sizeof(W), sizeof raw);
      out[i] = C::template bulk<In, Out>(raw, odd);
    }
    if (odd == 0) [[likely]] {
      // A copy loop the compiler keeps as vector moves (see VQ_VECTORISE).
      for (std::size_t i = 0; i < kBlock; ++i) std::memcpy(block + i * sizeof(W), &out[i], sizeof(W));
    } else {
      for (std::size_t i = 0; i < kBlock; ++i) convertAt<C, In, Out>(block + i * sizeof(W));
    }
  }
  for (; at < count; ++at) convertAt<C, In, Out>(p + at * sizeof(W));
}

// ---- AVX2 kernels -------------------------------------------------------------

// The costlier conversions are written out for 256-bit vectors (GCC vector
// extensions, which clang shares): auto-vectorised, their shift counts were
// narrowed to 32-bit lanes and widened back, and their values went through
// a block buffer. Each kernel converts one vector of stored words and sets
// `odd` non-zero in a lane that the per-value path must redo; results are
// stored once their group of vectors is known to be clean. Every helper
// is built for AVX2 only: vectors pass between such functions, never across
// the baseline ABI.
#ifdef VQ_AVX2_PATH
#define VQ_AVX2 [[gnu::always_inline, gnu::target("avx2")]] inline

static_assert(kHostOrder == D_INT_LITTLE_ENDIAN);

using V64 = std::uint64_t __attribute__((vector_size(32)));
using S64 = std::int64_t __attribute__((vector_size(32)));
using V32 = std::uint32_t __attribute__((vector_size(32)));
using S32 = std::int32_t __attribute__((vector_size(32)));
using F32 = float __attribute__((vector_size(32)));
using VBytes = char __attribute__((vector_size(32)));  // the byte shuffle's own type
using VLong = long long __attribute__((vector_size(32)));

// A byte permutation of each 8-byte lane, as indices over the 32 bytes.
#define VQ_LANES8(a, b, c, d, e, f, g, h)                                                       \
  a, b, c, d, e, f, g, h, a + 8, b + 8, c + 8, d + 8, e + 8, f + 8, g + 8, h + 8, a + 16, b + 16, \
      c + 16, d + 16, e + 16, f + 16, g + 16, h + 16, a + 24, b + 24, c + 24, d + 24, e + 24,     \
      f + 24, g + 24, h + 24

template <typename V>
VQ_AVX2 V reverse64(V v) {
  const auto b = reinterpret_cast<VBytes>(v);
  return reinterpret_cast<V>(__builtin_shufflevector(b, b, VQ_LANES8(7, 6, 5, 4, 3, 2, 1, 0)));
}
template <typename V>
VQ_AVX2 V reverse32(V v) {
  const auto b = reinterpret_cast<VBytes>(v);
  return reinterpret_cast<V>(__builtin_shufflevector(b, b, VQ_LANES8(3, 2, 1, 0, 7, 6, 5, 4)));
}
// VAX word order (see vaxWords64 and fromVax): both directions are the
// same byte permutation.
VQ_AVX2 V64 vax64(V64 v) {
  const auto b = reinterpret_cast<VBytes>(v);
  return reinterpret_cast<V64>(__builtin_shufflevector(b, b, VQ_LANES8(6, 7, 4, 5, 2, 3, 0, 1)));
}
VQ_AVX2 V32 vax32(V32 v) {
  const auto b = reinterpret_cast<VBytes>(v);
  return reinterpret_cast<V32>(__builtin_shufflevector(b, b, VQ_LANES8(2, 3, 0, 1, 6, 7, 4, 5)));
}
#undef VQ_LANES8

template <D_INT4 Order>
VQ_AVX2 V64 ieeeOrder64(V64 v) {
  if constexpr (Order == kHostOrder) return v;
  else return reverse64(v);
}
template <D_INT4 Order>
VQ_AVX2 V32 ieeeOrder32(V32 v) {
  if constexpr (Order == kHostOrder) return v;
  else return reverse32(v);
}

template <typename V>
VQ_AVX2 V maskOf(auto condition) { return reinterpret_cast<V>(condition); }

// 3 minus the leading zero bits of a non-zero hex digit (the right shift
// that normalises an IBM fraction to 53 bits), by a 16-entry table in a
// byte shuffle; the digit sits in the low byte of each lane, the other
// bytes index entry 0, which is 0.
VQ_AVX2 V64 digitShift(V64 digit) {
  constexpr VBytes kTable = {0, 0, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3, 3, 3, 3, 3,
                             0, 0, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3, 3, 3, 3, 3};
  return reinterpret_cast<V64>(__builtin_ia32_pshufb256(kTable, reinterpret_cast<VBytes>(digit)));
}

// An IBM double (loaded) as an IEEE exponent field F and shift s: the
// fraction moves right by s (0 for a zero leading digit, which the
// per-value path keeps unnormalised), and F = 4E + 763 + s, four more for
// a zero digit. The IEEE fraction is (f >> s) & kFrac52.
struct IbmLeadV {
  V64 f;      // the 56-bit fraction
  V64 shift;  // s
  V64 high;   // (F - 763) << 52
};

VQ_AVX2 IbmLeadV ibmLeadV(V64 v) {
  const V64 f = v & 0x00FFFFFFFFFFFFFFu;
  const V64 d = f >> 52;
  const V64 s = digitShift(d);
  const V64 high =
      ((v & 0x7F00000000000000u) >> 2) + (s << 52) + (maskOf<V64>(d == 0) & (V64{} + (std::uint64_t{4} << 52)));
  return {f, s, high};
}

// The IBM double of an IEEE exponent field plus one (t) and a 53-bit
// significand; a lane whose characteristic falls outside 0..127 comes back
// in `out_of_range` (non-zero), and its result is not used.
VQ_AVX2 V64 ibmFromFieldV(V64 sign, V64 t, V64 significand, V64 &out_of_range) {
  const V64 q = (t >> 2) - 191;
  out_of_range = q >> 7;
  return sign | (q << 56) | (significand << (t & 3));
}

struct Ibm4ToIeeeV {
  template <D_INT4, D_INT4 Out>
  VQ_AVX2 static V32 run(V32 raw, V32 &odd) {
    return ieeeOrder32<Out>(ibmToFloatBits(raw, odd, 280u << 23));
  }
  static constexpr std::uint32_t kOddLimit = (126u << 24) - 1;
  static constexpr std::size_t kGroup = 32;
  // As ibmToIeee32Bulk, flagging a lane above kOddLimit in an unsigned
  // maximum (no compare per vector, so fewer constants to keep in
  // registers): the characteristic minus 34, doubled, must lie in 0..124,
  // and wraps above it below 34, so one maximum covers both ends; so must
  // the fraction's distance below 2^20, a leading hex digit of zero. The
  // stored word is read as it lies: a byte shuffle takes the fraction out
  // in host order and a shift the sign and characteristic, which also
  // gives the sign to the converted fraction. `bias` is the exponent
  // offset, IEEE's or DEC F's.
  VQ_AVX2 static V32 ibmToFloatBits(V32 raw, V32 &odd, std::uint32_t bias) {
    constexpr VBytes kFraction = {3, 2, 1, -128, 7, 6, 5, -128, 11, 10, 9, -128, 15, 14, 13, -128,
                                  3, 2, 1, -128, 7, 6, 5, -128, 11, 10, 9, -128, 15, 14, 13, -128};
    const auto f = reinterpret_cast<V32>(__builtin_ia32_pshufb256(reinterpret_cast<VBytes>(raw), kFraction));
    const V32 high = raw << 24;  // sign and characteristic
    const V32 twice = high + high;  // the characteristic at the IEEE exponent, times four
    const V32 zero = maskOf<V32>(raw == 0);
    // A zero high byte clears the fraction: characteristic 0 is flagged.
    const auto signed_f =
        reinterpret_cast<S32>(__builtin_ia32_psignd256(reinterpret_cast<S32>(f), reinterpret_cast<S32>(high)));
    const auto bits = reinterpret_cast<V32>(__builtin_convertvector(signed_f, F32));
    const V32 c = twice - (68u << 24);
    const V32 g = (kOddLimit + (1u << 20)) - f;
    // A zero word's maximum is c's wrap, which the xor brings under the
    // limit (leaving ~zero one use, an and-not).
    const V32 x = (c > g ? c : g) ^ zero;
    odd = odd > x ? odd : x;
    // Added, not or'ed: the DEC bias carries a top exponent out through
    // the sign, as the DEC step does.
    return (bits + twice - bias) & ~zero;
  }
};

// The DEC step adds two to the exponent: folded into the bias.
struct Ibm4ToDecFV {
  static constexpr std::uint32_t kOddLimit = Ibm4ToIeeeV::kOddLimit;
  static constexpr std::size_t kGroup = 32;
  template <D_INT4, D_INT4>
  VQ_AVX2 static V32 run(V32 raw, V32 &odd) {
    return vax32(Ibm4ToIeeeV::ibmToFloatBits(raw, odd, (280u << 23) - 0x01000000u));
  }
};

struct Ibm8ToIeeeV {
  static constexpr bool kFlags = false;
  template <D_INT4, D_INT4 Out>
  VQ_AVX2 static V64 run(V64 raw, V64 &) {
    const V64 v = reverse64(raw);
    const IbmLeadV l = ibmLeadV(v);
    const V64 r = (v & kSign64) | (l.high + (V64{} + (std::uint64_t{763} << 52))) | ((l.f >> l.shift) & kFrac52);
    return ieeeOrder64<Out>(r & ~maskOf<V64>(v == 0));
  }
};

// DEC G is the IEEE field plus two, which every IBM exponent fits.
struct Ibm8ToDecGV {
  static constexpr bool kFlags = false;
  template <D_INT4, D_INT4>
  VQ_AVX2 static V64 run(V64 raw, V64 &) {
    const V64 v = reverse64(raw);
    const IbmLeadV l = ibmLeadV(v);
    const V64 r = (v & kSign64) | (l.high + (V64{} + (std::uint64_t{765} << 52))) | ((l.f >> l.shift) & kFrac52);
    return vax64(r & ~maskOf<V64>(v == 0));
  }
};

// DEC D: the exponent byte is F + 130 modulo 256, which is 4E + 128 -
// zeros, and the fraction the IEEE one shifted left by three, which is the
// IBM fraction shifted left by the leading zeros.
struct Ibm8ToDecDV {
  static constexpr V64 kOddBits = V64{} + (kSign64 | 0x100u);
  static constexpr std::size_t kGroup = 32;
  template <D_INT4, D_INT4>
  VQ_AVX2 static V64 run(V64 raw, V64 &odd) {
    // 127 - zeros by the leading digit, 0 for a zero digit: the exponent
    // byte less 4E and the normalised fraction's leading bit, which is
    // added rather than masked off. A zero word so comes out zero, and
    // the shift 127 - entry is the zeros, or clears the fraction.
    constexpr VBytes kBias = {0, 124, 125, 125, 126, 126, 126, 126, 127, 127, 127, 127, 127, 127, 127, 127,
                              0, 124, 125, 125, 126, 126, 126, 126, 127, 127, 127, 127, 127, 127, 127, 127};
    const V64 v = reverse64(raw);
    const V64 f = v & 0x00FFFFFFFFFFFFFFu;
    const V64 bias = reinterpret_cast<V64>(__builtin_ia32_pshufb256(kBias, reinterpret_cast<VBytes>(f >> 52)));
    const V64 e = v & 0x7F00000000000000u;
    // Flags by adds rather than compares, in two bits: bit 8 for a zero
    // leading digit (a zero entry less one borrows through it; the others
    // stay below 128) unless the word is zero, the sign for
    // characteristics of 96 and above. Fields above 1149 (clamped) start
    // at 96 with no leading zero; the rest of 96 fit but are rare enough
    // to go the exact way too.
    odd |= (e + bias + ((std::uint64_t{32} << 56) - 1)) & ~maskOf<V64>(v == 0);
    // E << 57 (an add, which more ports take than a shift) is 4E at DEC D's
    // exponent; carries past the byte and the fraction's bits below the
    // IEEE ones are masked off with the sign.
    const V64 sum = e + e + (f << (127 - bias)) + (bias << 55);
    return vax64((v & kSign64) | (sum & ~(kSign64 | 7u)));
  }
};

struct IeeeToIbm8V {
  template <D_INT4 In, D_INT4>
  VQ_AVX2 static V64 run(V64 raw, V64 &odd) {
    const V64 v = ieeeOrder64<In>(raw);
    const V64 zero = maskOf<V64>((v << 1) == 0);
    V64 out_of_range;
    const V64 r =
        ibmFromFieldV(v & kSign64, ((v >> 52) & 0x7FFu) + 1, (v & kFrac52) | (std::uint64_t{1} << 52), out_of_range);
    odd |= out_of_range & ~zero;
    return reverse64(r & ~zero);
  }
};

// DEC D exponents 1..255 always fit; 0 is flagged.
struct DecDToIbm8V {
  template <D_INT4, D_INT4>
  VQ_AVX2 static V64 run(V64 raw, V64 &odd) {
    const V64 v = vax64(raw);
    const V64 e = (v >> 55) & 0xFFu;
    const V64 zero = maskOf<V64>(v == 0);
    V64 unused;
    const V64 r = ibmFromFieldV(v & kSign64, e + 895, ((v & kFrac55) >> 3) | (std::uint64_t{1} << 52), unused);
    odd |= maskOf<V64>(e == 0) & ~zero;
    return reverse64(r & ~zero);
  }
};

struct DecGToIbm8V {
  template <D_INT4, D_INT4>
  VQ_AVX2 static V64 run(V64 raw, V64 &odd) {
    const V64 v = vax64(raw);
    const V64 zero = maskOf<V64>(v == 0);
    V64 out_of_range;
    const V64 r = ibmFromFieldV(v & kSign64, (((v >> 52) - 2) & 0x7FFu) + 1, (v & kFrac52) | (std::uint64_t{1} << 52),
                                out_of_range);
    odd |= out_of_range & ~zero;
    return reverse64(r & ~zero);
  }
};

// IEEE single (loaded) to IBM, as ieeeToIbm32, given its `magnitude`
// (the word without its sign); a lane whose `key` is zero gives zero (the
// caller's key is zero at least for zero and negative zero). With y the
// magnitude plus 133 at the exponent, y's top seven bits are the
// characteristic (t / 4 + 33, the 33 carried as 132), and its two low
// exponent bits t mod 4. Those two bits over exponent 147 make a float of
// 2^(20 + t mod 4) times the significand, whose truncation is the
// significand shifted right by 3 - t mod 4: one conversion for a variable
// shift and the masks and shift count it takes.
VQ_AVX2 V32 ibmFromIeee32V(V32 u, V32 magnitude, V32 key) {
  const V32 y = magnitude + (133u << 23);
  const V32 x = (y & 0x01FFFFFFu) + (147u << 23);
  const auto fraction = reinterpret_cast<V32>(__builtin_convertvector(reinterpret_cast<F32>(x), S32));
  const V32 r = (u & kSign32) | ((y >> 1) & 0x7F000000u) | fraction;
  return r & ~maskOf<V32>(key == 0);
}

struct IeeeToIbm4V {
  static constexpr bool kFlags = false;
  template <D_INT4 In, D_INT4>
  VQ_AVX2 static V32 run(V32 raw, V32 &) {
    const V32 u = ieeeOrder32<In>(raw);
    const V32 magnitude = u & ~kSign32;
    return reverse32(ibmFromIeee32V(u, magnitude, magnitude));
  }
};

// Through IEEE, whose zero (DEC exponent 2 without fraction bits) is
// IBM's; all-zero bytes stay zero.
struct DecFToIbm4V {
  static constexpr bool kFlags = false;
  template <D_INT4, D_INT4>
  VQ_AVX2 static V32 run(V32 raw, V32 &) {
    const V32 v = vax32(raw);
    const V32 u = v - 0x01000000u;
    // Zero when either is: one unsigned minimum instead of a second test.
    const V32 magnitude = u & ~kSign32;
    return reverse32(ibmFromIeee32V(u, magnitude, magnitude < v ? magnitude : v));
  }
};

// The DEC D exponent plus 896 is the DEC G one, and shifting the word
// right by three puts both the exponent and the fraction in place; the sum
// stays below the sign.
struct DecDToDecGV {
  static constexpr bool kFlags = false;
  template <D_INT4, D_INT4>
  VQ_AVX2 static V64 run(V64 raw, V64 &) {
    const V64 v = vax64(raw);
    const V64 r = (v & kSign64) | (((v >> 3) & ~(std::uint64_t{0xF} << 60)) + (std::uint64_t{896} << 52));
    return vax64(r & ~maskOf<V64>(v == 0));
  }
};

// DEC G exponent fields 1..1150 fit DEC D: (g + 897) >> 11 is non-zero
// above, and 0 is flagged unless the whole word is zero.
struct DecGToDecDV {
  template <D_INT4, D_INT4>
  VQ_AVX2 static V64 run(V64 raw, V64 &odd) {
    const V64 v = vax64(raw);
    const V64 zero = maskOf<V64>(v == 0);
    const V64 g = (v >> 52) & 0x7FFu;
    odd |= ((g + 897) >> 11) | (maskOf<V64>(g == 0) & ~zero);
    const V64 r = (v & kSign64) | ((g + 128) & 0xFFu) << 55 | (v & kFrac52) << 3;
    return vax64(r & ~zero);
  }
};

// IEEE fields 1..1149 fit DEC D ((field + 898) >> 11 is non-zero above),
// 1..2045 fit DEC G; zero and negative zero give zero.
struct IeeeToDecDV {
  template <D_INT4 In, D_INT4>
  VQ_AVX2 static V64 run(V64 raw, V64 &odd) {
    const V64 v = ieeeOrder64<In>(raw);
    const V64 zero = maskOf<V64>((v << 1) == 0);
    const V64 field = (v >> 52) & 0x7FFu;
    odd |= ((field + 898) >> 11) | (maskOf<V64>(field == 0) & ~zero);
    const V64 r = (v & kSign64) | ((field + 130) & 0xFFu) << 55 | (v & kFrac52) << 3;
    return vax64(r & ~zero);
  }
};

struct IeeeToDecGV {
  template <D_INT4 In, D_INT4>
  VQ_AVX2 static V64 run(V64 raw, V64 &odd) {
    const V64 v = ieeeOrder64<In>(raw);
    const V64 zero = maskOf<V64>((v << 1) == 0);
    const V64 field = (v >> 52) & 0x7FFu;
    odd |= ((field + 2) >> 11) | (maskOf<V64>(field == 0) & ~zero);
    // Two more in the field, which stays below the sign for every
    // unflagged value.
    return vax64((v + (std::uint64_t{2} << 52)) & ~zero);
  }
};

// Conversions without a kernel here keep the auto-vectorised block loop.
template <typename C> struct Avx2 { using Kernel = void; };
template <> struct Avx2<Ibm4ToIeee> { using Kernel = Ibm4ToIeeeV; };
template <> struct Avx2<Ibm4ToDecF> { using Kernel = Ibm4ToDecFV; };
template <> struct Avx2<Ibm8ToIeee> { using Kernel = Ibm8ToIeeeV; };
template <> struct Avx2<Ibm8ToDecG> { using Kernel = Ibm8ToDecGV; };
template <> struct Avx2<Ibm8ToDecD> { using Kernel = Ibm8ToDecDV; };
template <> struct Avx2<IeeeToIbm8> { using Kernel = IeeeToIbm8V; };
template <> struct Avx2<DecDToIbm8> { using Kernel = DecDToIbm8V; };
template <> struct Avx2<DecGToIbm8> { using Kernel = DecGToIbm8V; };
template <> struct Avx2<IeeeToIbm4> { using Kernel = IeeeToIbm4V; };
template <> struct Avx2<DecFToIbm4> { using Kernel = DecFToIbm4V; };
template <> struct Avx2<DecDToDecG> { using Kernel = DecDToDecGV; };
template <> struct Avx2<DecGToDecD> { using Kernel = DecGToDecDV; };
template <> struct Avx2<IeeeToDecD> { using Kernel = IeeeToDecDV; };
template <> struct Avx2<IeeeToDecG> { using Kernel = IeeeToDecGV; };

template <typename K>
concept Flagging = !requires { K::kFlags; } || K::kFlags;

// Whether a group's `odd` flags no lane: no bit of it set (or none of the
// kernel's kOddBits), or for a kernel that gathers an unsigned maximum, no
// lane above its kOddLimit.
template <typename K, typename V>
VQ_AVX2 bool groupClean(V odd) {
  if constexpr (requires { K::kOddLimit; }) {
    return __builtin_ia32_ptestc256(reinterpret_cast<VLong>(maskOf<V>(odd <= K::kOddLimit)), VLong{} - 1);
  } else if constexpr (requires { K::kOddBits; }) {
    return __builtin_ia32_ptestz256(reinterpret_cast<VLong>(odd), reinterpret_cast<VLong>(K::kOddBits));
  } else {
    return __builtin_ia32_ptestz256(reinterpret_cast<VLong>(odd), VLong{} - 1);
  }
}

// Vectors converted before the flags are tested: two by default, held in
// registers (more spill them). Kernels with many constants run faster
// through a 1 KiB buffer (kGroup), whose flag test and copy cost less than
// the constants they would reload.
template <typename K>
constexpr std::size_t groupOf() {
  if constexpr (requires { K::kGroup; }) return K::kGroup;
  else return 2;
}

// Groups of vectors converted and stored when no lane is flagged; a
// flagged group is done again value by value from its untouched input.
template <typename C, typename K, D_INT4 In, D_INT4 Out>
[[gnu::target("avx2"), VQ_VECTORISE]] void convertVectorsAvx2(unsigned char *p, std::size_t count) {
  using W = typename C::Word;
  using V = std::conditional_t<sizeof(W) == 4, V32, V64>;
  constexpr std::size_t kLanes = sizeof(V) / sizeof(W);
  constexpr std::size_t kGroup = groupOf<K>();
  constexpr std::size_t kValues = kGroup * kLanes;
  std::size_t at = 0;
  if constexpr (!Flagging<K>) {
    // Nothing to redo: convert in place.
    for (; at + kLanes <= count; at += kLanes) {
      V v;
      V unused;
      std::memcpy(&v, p + at * sizeof(W), sizeof v);
      v = K::template run<In, Out>(v, unused);
      std::memcpy(p + at * sizeof(W), &v, sizeof v);
    }
  }
  for (; at + kValues <= count; at += kValues) {
    unsigned char *group = p + at * sizeof(W);
    V r[kGroup];
    V odd{};
    // Unrolled: a group of two stays in registers.
#pragma GCC unroll 2
    for (std::size_t i = 0; i < kGroup; ++i) {
      V raw;
      std::memcpy(&raw, group + i * sizeof(V), sizeof raw);
      r[i] = K::template run<In, Out>(raw, odd);
    }
    if (groupClean<K>(odd)) [[likely]] {
      // Through a vector value: a memory-to-memory copy of 32 bytes becomes
      // two 16-byte moves (and without VQ_VECTORISE the loop a `rep movs`).
#pragma GCC unroll 2
      for (std::size_t i = 0; i < kGroup; ++i) {
        const V x = r[i];
        std::memcpy(group + i * sizeof(V), &x, sizeof x);
      }
    } else {
      for (std::size_t i = 0; i < kValues; ++i) convertAt<C, In, Out>(group + i * sizeof(W));
    }
  }
  for (; at < count; ++at) convertAt<C, In, Out>(p + at * sizeof(W));
}
#endif

// The block loop is built twice: for the baseline instruction set and,
// on x86-64, for AVX2, which has the byte shuffles, per-lane shifts and
// 64-bit compares the conversions need to run as vector code. The choice
// is made once per array.
#ifdef VQ_AVX2_PATH
template <typename C, D_INT4 In, D_INT4 Out>
[[gnu::target("avx2"), VQ_VECTORISE]] void convertManyAvx2(unsigned char *p, std::size_t count) {
  using K = typename Avx2<C>::Kernel;
  if constexpr (std::is_void_v<K>) convertBlocks<C, In, Out>(p, count);
  else convertVectorsAvx2<C, K, In, Out>(p, count);
}

bool hasAvx2() {
  static const bool has = [] {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") != 0;
  }();
  return has;
}
#endif

template <typename C, D_INT4 In, D_INT4 Out>
[[VQ_VECTORISE]] void convertMany(unsigned char *p, std::size_t count) {
#ifdef VQ_AVX2_PATH
  if (hasAvx2()) return convertManyAvx2<C, In, Out>(p, count);
#endif
  convertBlocks<C, In, Out>(p, count);
}

template <typename C>
D_BOOL convertArray(void *values, D_UINT4 count, D_INT4 in, D_INT4 out) {
  if (!argsOk(values == nullptr && count > 0, orderOk(C::from, in), orderOk(C::to, out))) return D_FALSE;
  if (count == 0) return D_TRUE;
  byOrders<C>(in, out, [=]<D_INT4 In, D_INT4 Out>() {
    convertMany<C, In, Out>(static_cast<unsigned char *>(values), count);
  });
  return D_TRUE;
}

void assertNotNull(const void *p, D_INT4 line) {
  if (p == nullptr) [[unlikely]] failAssert("val_in_out != NULL", line);
}

}  // namespace

extern "C" {

// ---- Host formats and their names -----------------------------------------

D_EXPORT D_INT4 DutGetIntFormat(void) {
  const D_UINT4 one = 1;
  unsigned char bytes[sizeof one];
  std::memcpy(bytes, &one, sizeof one);
  if (bytes[0] == 1) {
    DutAssert(bytes[1] == 0 && bytes[2] == 0 && bytes[3] == 0,
              "bytes[1] == 0 && bytes[2] == 0 && bytes[3] == 0", kFile, __LINE__);
    return D_INT_LITTLE_ENDIAN;
  }
  DutAssert(bytes[0] == 0 && bytes[1] == 0 && bytes[2] == 0 && bytes[3] == 1,
            "bytes[3] == 1", kFile, __LINE__);
  return D_INT_BIG_ENDIAN;
}

D_EXPORT D_INT4 DutGetRealFormat(void) { return D_REAL_IEEE; }

D_EXPORT D_BOOL DutIntFormatToStr(D_INT4 format, const char **str) {
  if (str == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  switch (format) {
    case D_INT_LITTLE_ENDIAN:
      *str = "LITTLE_ENDIAN";
      return D_TRUE;
    case D_INT_BIG_ENDIAN:
      *str = "BIG_ENDIAN";
      return D_TRUE;
    default:
      return D_FALSE;
  }
}

D_EXPORT D_BOOL DutRealFormatToStr(D_INT4 format, const char **str) {
  if (str == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  switch (format) {
    case D_REAL_DEC_D:
      *str = "DEC_D";
      return D_TRUE;
    case D_REAL_DEC_G:
      *str = "DEC_G";
      return D_TRUE;
    case D_REAL_IEEE:
      *str = "IEEE";
      return D_TRUE;
    case D_REAL_IBM_370:
      *str = "IBM_370";
      return D_TRUE;
    default:
      return D_FALSE;
  }
}

// ---- Byte swaps ---------------------------------------------------------------

D_EXPORT void DutSwapTwoBytes(void *val_in_out) {
  assertNotNull(val_in_out, __LINE__);
  std::uint16_t v;
  std::memcpy(&v, val_in_out, sizeof v);
  v = swap16(v);
  std::memcpy(val_in_out, &v, sizeof v);
}

D_EXPORT void DutSwapFourBytes(void *val_in_out) {
  assertNotNull(val_in_out, __LINE__);
  std::uint32_t v;
  std::memcpy(&v, val_in_out, sizeof v);
  v = swap32(v);
  std::memcpy(val_in_out, &v, sizeof v);
}

D_EXPORT void DutSwapEightBytes(void *val_in_out) {
  assertNotNull(val_in_out, __LINE__);
  std::uint64_t v;
  std::memcpy(&v, val_in_out, sizeof v);
  v = swap64(v);
  std::memcpy(val_in_out, &v, sizeof v);
}

D_EXPORT void DutSwapSixteenBytes(void *val_in_out) {
  assertNotNull(val_in_out, __LINE__);
  std::uint64_t lo;
  std::uint64_t hi;
  auto *bytes = static_cast<unsigned char *>(val_in_out);
  std::memcpy(&lo, bytes, sizeof lo);
  std::memcpy(&hi, bytes + 8, sizeof hi);
  lo = swap64(lo);
  hi = swap64(hi);
  std::memcpy(bytes, &hi, sizeof hi);
  std::memcpy(bytes + 8, &lo, sizeof lo);
}

// ---- Real conversions ---------------------------------------------------------

// Each member converts one value or an array of values; the composite ones
// go through IEEE in host order and check both formats first.
#define VQ_FORMAT_MEMBER(name, conversion)                                                          \
  D_EXPORT D_BOOL DutSwap##name(void *val_in_out, D_INT4 format_in, D_INT4 format_out) {          \
    return convertOne<conversion>(val_in_out, format_in, format_out);                              \
  }                                                                                                \
  D_EXPORT D_BOOL DutSwap##name##Array(void *values, D_UINT4 count, D_INT4 format_in, D_INT4 format_out) { \
    return convertArray<conversion>(values, count, format_in, format_out);                         \
  }

VQ_FORMAT_MEMBER(Real4IeeeToDecF, IeeeToDecF)
VQ_FORMAT_MEMBER(Real4DecFToIeee, DecFToIeee)
VQ_FORMAT_MEMBER(Real4IeeeToIbm370, IeeeToIbm4)
VQ_FORMAT_MEMBER(Real4Ibm370ToIeee, Ibm4ToIeee)
VQ_FORMAT_MEMBER(Real4DecFToIbm370, DecFToIbm4)
VQ_FORMAT_MEMBER(Real4Ibm370ToDecF, Ibm4ToDecF)
VQ_FORMAT_MEMBER(Real8IeeeToDecD, IeeeToDecD)
VQ_FORMAT_MEMBER(Real8IeeeToDecG, IeeeToDecG)
VQ_FORMAT_MEMBER(Real8DecDToIeee, DecDToIeee)
VQ_FORMAT_MEMBER(Real8DecGToIeee, DecGToIeee)
VQ_FORMAT_MEMBER(Real8DecDToDecG, DecDToDecG)
VQ_FORMAT_MEMBER(Real8DecGToDecD, DecGToDecD)
VQ_FORMAT_MEMBER(Real8IeeeToIbm370, IeeeToIbm8)
VQ_FORMAT_MEMBER(Real8Ibm370ToIeee, Ibm8ToIeee)
VQ_FORMAT_MEMBER(Real8DecDToIbm370, DecDToIbm8)
VQ_FORMAT_MEMBER(Real8DecGToIbm370, DecGToIbm8)
VQ_FORMAT_MEMBER(Real8Ibm370ToDecD, Ibm8ToDecD)
VQ_FORMAT_MEMBER(Real8Ibm370ToDecG, Ibm8ToDecG)

#undef VQ_FORMAT_MEMBER

}  // extern "C"

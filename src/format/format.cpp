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

constexpr std::uint32_t swap32(std::uint32_t v) {
  return ((v & 0x000000FFu) << 24) | ((v & 0x0000FF00u) << 8) | ((v & 0x00FF0000u) >> 8) |
         ((v & 0xFF000000u) >> 24);
}

constexpr std::uint64_t swap64(std::uint64_t v) {
  return (static_cast<std::uint64_t>(swap32(static_cast<std::uint32_t>(v))) << 32) |
         swap32(static_cast<std::uint32_t>(v >> 32));
}

std::uint32_t load32(const void *p, D_INT4 order) {
  std::uint32_t v;
  std::memcpy(&v, p, sizeof v);
  return order == kHostOrder ? v : swap32(v);
}

void store32(void *p, std::uint32_t v, D_INT4 order) {
  if (order != kHostOrder) v = swap32(v);
  std::memcpy(p, &v, sizeof v);
}

std::uint64_t load64(const void *p, D_INT4 order) {
  std::uint64_t v;
  std::memcpy(&v, p, sizeof v);
  return order == kHostOrder ? v : swap64(v);
}

void store64(void *p, std::uint64_t v, D_INT4 order) {
  if (order != kHostOrder) v = swap64(v);
  std::memcpy(p, &v, sizeof v);
}

// VAX storage: little-endian 16-bit words, the most significant word first.
// Read as a little-endian integer, that puts the words in reverse order.
constexpr std::uint32_t vaxWords32(std::uint32_t v) { return (v << 16) | (v >> 16); }

constexpr std::uint64_t vaxWords64(std::uint64_t v) {
  v = (v << 32) | (v >> 32);
  return ((v & 0x0000FFFF0000FFFFu) << 16) | ((v >> 16) & 0x0000FFFF0000FFFFu);
}

std::uint32_t loadVax32(const void *p) { return vaxWords32(load32(p, D_INT_LITTLE_ENDIAN)); }
void storeVax32(void *p, std::uint32_t v) { store32(p, vaxWords32(v), D_INT_LITTLE_ENDIAN); }
std::uint64_t loadVax64(const void *p) { return vaxWords64(load64(p, D_INT_LITTLE_ENDIAN)); }
void storeVax64(void *p, std::uint64_t v) { store64(p, vaxWords64(v), D_INT_LITTLE_ENDIAN); }

bool isZero32(const void *p) {
  std::uint32_t v;
  std::memcpy(&v, p, sizeof v);
  return v == 0;
}

bool isZero64(const void *p) {
  std::uint64_t v;
  std::memcpy(&v, p, sizeof v);
  return v == 0;
}

// ---- Argument checks ----------------------------------------------------

constexpr bool ieeeOrder(D_INT4 f) { return f == D_INT_LITTLE_ENDIAN || f == D_INT_BIG_ENDIAN; }
constexpr bool decOrder(D_INT4 f) { return f == D_INT_LITTLE_ENDIAN; }
constexpr bool ibmOrder(D_INT4 f) { return f == D_INT_BIG_ENDIAN; }

// Null first, then the two formats; the value is never touched on failure.
bool argsOk(const void *p, bool in_ok, bool out_ok) {
  if (p == nullptr) [[unlikely]] {
    DutErrNumSet(D_ERR_NULL_PTR);
    return false;
  }
  if (!in_ok || !out_ok) [[unlikely]] {
    DutErrNumSet(D_ERR_VAL_INVALID);
    return false;
  }
  return true;
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
  const std::uint32_t sign = v & kSign32;
  const std::uint32_t exponent = (v >> 23) & 0xFFu;
  const std::uint32_t m = (v & 0x007FFFFFu) | 0x00800000u;
  // Align the binary point on a hex digit: (exponent + 1) mod 4 of 0, 1, 2,
  // 3 drops 3, 2, 1, 0 low bits, and x = exponent + 1 + shift makes x + 1 a
  // multiple of four. Computed rather than branched on, since the low
  // exponent bits of real data are as good as random.
  const std::uint32_t shift = 3u - ((exponent + 1) & 3u);
  const std::uint32_t x = exponent + 1 + shift;
  return sign | (((x + 1) / 4 + 32) << 24) | (m >> shift);
}

VQ_INLINE constexpr std::uint32_t ibmToIeee32Kernel(std::uint32_t sign, std::int32_t e, std::uint32_t f) {
  // Normalise on the first hex digit: its leading zero bits (0..3) move
  // the fraction left and lower the exponent. A zero digit keeps both.
  std::int32_t exponent;
  if ((f & 0x00F00000u) != 0) [[likely]] {
    const int lz = std::countl_zero(f << 8);
    f <<= lz;
    exponent = 4 * e - 130 - lz;
  } else {
    exponent = 4 * e - 129;
  }
  // Only the low eight bits of the exponent are kept (E = 33 with a leading
  // digit of 1 gives all ones).
  const std::uint32_t field = static_cast<std::uint32_t>(exponent) & 0xFFu;
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

VQ_INLINE std::uint32_t ibmToIeee32(std::uint32_t v) {
  const std::int32_t e = static_cast<std::int32_t>((v >> 24) & 0x7Fu);
  if (e < 33 || e > 96) [[unlikely]] return ibmToIeee32Clamped(v);
  return ibmToIeee32Kernel(v & kSign32, e, v & 0x00FFFFFFu);
}

// ---- 8-byte kernels ----------------------------------------------------------

constexpr std::uint64_t kFrac52 = 0x000FFFFFFFFFFFFFu;
constexpr std::uint64_t kFrac55 = 0x007FFFFFFFFFFFFFu;

// The slow paths below handle the exponents that assert or warn; they are
// out of line so that the common path makes no call.

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

VQ_INLINE std::uint64_t ieeeToDecD(std::uint64_t v) {
  const std::int32_t ieee_exp = static_cast<std::int32_t>((v >> 52) & 0x7FFu) - 1023;
  if (!D_IN_RANGE(ieee_exp, -1022, 126)) [[unlikely]] return ieeeToDecDSlow(v);
  // No underflow check: exponents below -128 wrap.
  const auto dec_exp = static_cast<std::uint64_t>(static_cast<std::uint32_t>(ieee_exp + 129) & 0xFFu);
  return (v & kSign64) | (dec_exp << 55) | ((v & kFrac52) << 3);
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

VQ_INLINE std::uint64_t ieeeToDecG(std::uint64_t v) {
  const std::int32_t ieee_exp = static_cast<std::int32_t>((v >> 52) & 0x7FFu) - 1023;
  if (!D_IN_RANGE(ieee_exp, -1022, 1022)) [[unlikely]] return ieeeToDecGSlow(v);
  const auto dec_g_exp = static_cast<std::uint64_t>(ieee_exp + 1025);
  return (v & kSign64) | (dec_g_exp << 52) | (v & kFrac52);
}

VQ_INLINE constexpr std::uint64_t decDToIeee(std::uint64_t v) {
  const std::uint64_t sign = v & kSign64;
  const std::uint32_t dec_exp = static_cast<std::uint32_t>((v >> 55) & 0xFFu);
  // Taken as a signed byte: DEC exponent 0 wraps to +127.
  const std::int32_t e = static_cast<std::int8_t>(static_cast<std::uint8_t>(dec_exp - 129));
  const auto ieee_exp = static_cast<std::uint64_t>(1023 + e);
  return sign | (ieee_exp << 52) | ((v & kFrac55) >> 3);
}

constexpr std::uint64_t decGToIeee(std::uint64_t v) {
  const std::uint64_t sign = v & kSign64;
  const std::uint64_t field = ((v >> 52) - 2) & 0x7FFu;
  return sign | (field << 52) | (v & kFrac52);
}

VQ_INLINE constexpr std::uint64_t decDToDecG(std::uint64_t v) {
  const std::uint64_t sign = v & kSign64;
  const std::uint32_t dec_exp = static_cast<std::uint32_t>((v >> 55) & 0xFFu);
  const std::int32_t e = static_cast<std::int8_t>(static_cast<std::uint8_t>(dec_exp - 128));
  const auto g_exp = static_cast<std::uint64_t>(e + 1024);
  return sign | (g_exp << 52) | ((v & kFrac55) >> 3);
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

VQ_INLINE std::uint64_t decGToDecD(std::uint64_t v) {
  const std::int32_t dec_g_exp = static_cast<std::int32_t>((v >> 52) & 0x7FFu) - 1024;
  if (!D_IN_RANGE(dec_g_exp, -1023, 126)) [[unlikely]] return decGToDecDSlow(v);
  // No underflow check: exponents below -128 wrap.
  const auto dec_d_exp = static_cast<std::uint64_t>(static_cast<std::uint32_t>(dec_g_exp + 128) & 0xFFu);
  return (v & kSign64) | (dec_d_exp << 55) | ((v & kFrac52) << 3);
}

constexpr std::uint64_t ibm64Assemble(std::uint64_t sign, std::int32_t x, std::uint64_t m) {
  const auto ibm_exp = static_cast<std::uint64_t>(((x + 1) / 4 - 64) & 0x7F);
  return sign | (ibm_exp << 56) | m;
}

VQ_COLD std::uint64_t ieeeToIbm64Clamped(std::uint64_t sign, std::int32_t x,
                                                              std::uint64_t m) {
  if (x < 767) {
    warn("DutSwapReal8IeeeToIbm370: IEEE exponent underflows IBM_370 exponent\n");
    x = 767;
  } else {
    warn("DutSwapReal8IeeeToIbm370: IEEE exponent overflows IBM_370 exponent\n");
    x = 1275;
  }
  return ibm64Assemble(sign, x, m);
}

VQ_INLINE std::uint64_t ieeeToIbm64(std::uint64_t v) {
  const std::uint64_t sign = v & kSign64;
  const std::uint32_t exponent = static_cast<std::uint32_t>((v >> 52) & 0x7FFu);
  // The 53-bit significand moves left into the 56-bit fraction, so nothing
  // is lost on this side: (exponent + 1) mod 4 is the shift, and
  // x = exponent + 4 - shift makes x + 1 a multiple of four.
  const std::uint32_t shift = (exponent + 1) & 3u;
  const std::uint64_t m = ((v & kFrac52) | (std::uint64_t{1} << 52)) << shift;
  const auto x = static_cast<std::int32_t>(exponent + 4 - shift);
  if (!D_IN_RANGE(x, 767, 1275)) [[unlikely]] return ieeeToIbm64Clamped(sign, x, m);
  return ibm64Assemble(sign, x, m);
}

VQ_INLINE constexpr std::uint64_t ibmToIeee64(std::uint64_t v) {
  const std::uint64_t sign = v & kSign64;
  const std::int32_t e = static_cast<std::int32_t>((v >> 56) & 0x7Fu);
  std::uint64_t f = v & 0x00FFFFFFFFFFFFFFu;
  std::int32_t exponent;
  if ((f & 0x00F0000000000000u) != 0) [[likely]] {
    const int lz = std::countl_zero(f << 8);
    f >>= 3 - lz;
    exponent = 4 * e + 766 - lz;
  } else {
    exponent = 4 * e + 767;
  }
  const auto field = static_cast<std::uint64_t>(exponent) & 0x7FFu;
  return sign | (f & kFrac52) | (field << 52);
}

// ---- Conversions with their byte orders ---------------------------------

// IEEE single in format_in -> DEC F in VAX order.
VQ_INLINE void toDecF(void *p, D_INT4 format_in) {
  const std::uint32_t v = load32(p, format_in);
  if (v == 0) return;
  if (v == kSign32) {
    store32(p, 0, kHostOrder);
    return;
  }
  storeVax32(p, ieeeToDecF(v));
}

VQ_INLINE void fromDecF(void *p, D_INT4 format_out) {
  if (isZero32(p)) return;
  store32(p, decFToIeee(loadVax32(p)), format_out);
}

VQ_INLINE void toIbm32(void *p, D_INT4 format_in) {
  const std::uint32_t v = load32(p, format_in);
  if (v == 0) return;
  if (v == kSign32) {
    store32(p, 0, kHostOrder);
    return;
  }
  store32(p, ieeeToIbm32(v), D_INT_BIG_ENDIAN);
}

VQ_INLINE void fromIbm32(void *p, D_INT4 format_out) {
  if (isZero32(p)) return;
  store32(p, ibmToIeee32(load32(p, D_INT_BIG_ENDIAN)), format_out);
}

// IEEE double in format_in -> a foreign format through `kernel`, stored by
// `store`. Zero stays, negative zero becomes zero.
template <typename Kernel, typename Store>
VQ_INLINE void fromIeee64(void *p, D_INT4 format_in, Kernel kernel, Store store) {
  const std::uint64_t v = load64(p, format_in);
  if (v == 0) return;
  if (v == kSign64) {
    store64(p, 0, kHostOrder);
    return;
  }
  store(p, kernel(v));
}

VQ_INLINE void toDecD(void *p, D_INT4 format_in) { fromIeee64(p, format_in, ieeeToDecD, storeVax64); }
VQ_INLINE void toDecG(void *p, D_INT4 format_in) { fromIeee64(p, format_in, ieeeToDecG, storeVax64); }

VQ_INLINE void toIbm64(void *p, D_INT4 format_in) {
  fromIeee64(p, format_in, ieeeToIbm64,
             [](void *q, std::uint64_t r) { store64(q, r, D_INT_BIG_ENDIAN); });
}

VQ_INLINE void fromDecD(void *p, D_INT4 format_out) {
  if (isZero64(p)) return;
  store64(p, decDToIeee(loadVax64(p)), format_out);
}

VQ_INLINE void fromDecG(void *p, D_INT4 format_out) {
  if (isZero64(p)) return;
  store64(p, decGToIeee(loadVax64(p)), format_out);
}

VQ_INLINE void fromIbm64(void *p, D_INT4 format_out) {
  if (isZero64(p)) return;
  store64(p, ibmToIeee64(load64(p, D_INT_BIG_ENDIAN)), format_out);
}

// A DEC zero has no other meaning than zero, so it is not run through the
// exponent arithmetic (which would give a tiny non-zero value, or fail the
// range assertion on the G side).
VQ_INLINE void decDToDecGInPlace(void *p) {
  if (isZero64(p)) return;
  storeVax64(p, decDToDecG(loadVax64(p)));
}

VQ_INLINE void decGToDecDInPlace(void *p) {
  if (isZero64(p)) return;
  storeVax64(p, decGToDecD(loadVax64(p)));
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

// ---- 4-byte reals ---------------------------------------------------------------

D_EXPORT D_BOOL DutSwapReal4IeeeToDecF(void *val_in_out, D_INT4 format_in, D_INT4 format_out) {
  if (!argsOk(val_in_out, ieeeOrder(format_in), decOrder(format_out))) return D_FALSE;
  toDecF(val_in_out, format_in);
  return D_TRUE;
}

D_EXPORT D_BOOL DutSwapReal4DecFToIeee(void *val_in_out, D_INT4 format_in, D_INT4 format_out) {
  if (!argsOk(val_in_out, decOrder(format_in), ieeeOrder(format_out))) return D_FALSE;
  fromDecF(val_in_out, format_out);
  return D_TRUE;
}

D_EXPORT D_BOOL DutSwapReal4IeeeToIbm370(void *val_in_out, D_INT4 format_in, D_INT4 format_out) {
  if (!argsOk(val_in_out, ieeeOrder(format_in), ibmOrder(format_out))) return D_FALSE;
  toIbm32(val_in_out, format_in);
  return D_TRUE;
}

D_EXPORT D_BOOL DutSwapReal4Ibm370ToIeee(void *val_in_out, D_INT4 format_in, D_INT4 format_out) {
  if (!argsOk(val_in_out, ibmOrder(format_in), ieeeOrder(format_out))) return D_FALSE;
  fromIbm32(val_in_out, format_out);
  return D_TRUE;
}

// The composite conversions check both formats here; their steps on a
// checked pointer cannot fail, and go through IEEE in host order.
D_EXPORT D_BOOL DutSwapReal4DecFToIbm370(void *val_in_out, D_INT4 format_in, D_INT4 format_out) {
  if (!argsOk(val_in_out, decOrder(format_in), ibmOrder(format_out))) return D_FALSE;
  fromDecF(val_in_out, kHostOrder);
  toIbm32(val_in_out, kHostOrder);
  return D_TRUE;
}

D_EXPORT D_BOOL DutSwapReal4Ibm370ToDecF(void *val_in_out, D_INT4 format_in, D_INT4 format_out) {
  if (!argsOk(val_in_out, ibmOrder(format_in), decOrder(format_out))) return D_FALSE;
  fromIbm32(val_in_out, kHostOrder);
  toDecF(val_in_out, kHostOrder);
  return D_TRUE;
}

// ---- 8-byte reals ---------------------------------------------------------------

D_EXPORT D_BOOL DutSwapReal8IeeeToDecD(void *val_in_out, D_INT4 format_in, D_INT4 format_out) {
  if (!argsOk(val_in_out, ieeeOrder(format_in), decOrder(format_out))) return D_FALSE;
  toDecD(val_in_out, format_in);
  return D_TRUE;
}

D_EXPORT D_BOOL DutSwapReal8IeeeToDecG(void *val_in_out, D_INT4 format_in, D_INT4 format_out) {
  if (!argsOk(val_in_out, ieeeOrder(format_in), decOrder(format_out))) return D_FALSE;
  toDecG(val_in_out, format_in);
  return D_TRUE;
}

D_EXPORT D_BOOL DutSwapReal8DecDToIeee(void *val_in_out, D_INT4 format_in, D_INT4 format_out) {
  if (!argsOk(val_in_out, decOrder(format_in), ieeeOrder(format_out))) return D_FALSE;
  fromDecD(val_in_out, format_out);
  return D_TRUE;
}

D_EXPORT D_BOOL DutSwapReal8DecGToIeee(void *val_in_out, D_INT4 format_in, D_INT4 format_out) {
  if (!argsOk(val_in_out, decOrder(format_in), ieeeOrder(format_out))) return D_FALSE;
  fromDecG(val_in_out, format_out);
  return D_TRUE;
}

D_EXPORT D_BOOL DutSwapReal8DecDToDecG(void *val_in_out, D_INT4 format_in, D_INT4 format_out) {
  if (!argsOk(val_in_out, decOrder(format_in), decOrder(format_out))) return D_FALSE;
  decDToDecGInPlace(val_in_out);
  return D_TRUE;
}

D_EXPORT D_BOOL DutSwapReal8DecGToDecD(void *val_in_out, D_INT4 format_in, D_INT4 format_out) {
  if (!argsOk(val_in_out, decOrder(format_in), decOrder(format_out))) return D_FALSE;
  decGToDecDInPlace(val_in_out);
  return D_TRUE;
}

D_EXPORT D_BOOL DutSwapReal8IeeeToIbm370(void *val_in_out, D_INT4 format_in, D_INT4 format_out) {
  if (!argsOk(val_in_out, ieeeOrder(format_in), ibmOrder(format_out))) return D_FALSE;
  toIbm64(val_in_out, format_in);
  return D_TRUE;
}

D_EXPORT D_BOOL DutSwapReal8Ibm370ToIeee(void *val_in_out, D_INT4 format_in, D_INT4 format_out) {
  if (!argsOk(val_in_out, ibmOrder(format_in), ieeeOrder(format_out))) return D_FALSE;
  fromIbm64(val_in_out, format_out);
  return D_TRUE;
}

D_EXPORT D_BOOL DutSwapReal8DecDToIbm370(void *val_in_out, D_INT4 format_in, D_INT4 format_out) {
  if (!argsOk(val_in_out, decOrder(format_in), ibmOrder(format_out))) return D_FALSE;
  fromDecD(val_in_out, kHostOrder);
  toIbm64(val_in_out, kHostOrder);
  return D_TRUE;
}

D_EXPORT D_BOOL DutSwapReal8DecGToIbm370(void *val_in_out, D_INT4 format_in, D_INT4 format_out) {
  if (!argsOk(val_in_out, decOrder(format_in), ibmOrder(format_out))) return D_FALSE;
  fromDecG(val_in_out, kHostOrder);
  toIbm64(val_in_out, kHostOrder);
  return D_TRUE;
}

D_EXPORT D_BOOL DutSwapReal8Ibm370ToDecD(void *val_in_out, D_INT4 format_in, D_INT4 format_out) {
  if (!argsOk(val_in_out, ibmOrder(format_in), decOrder(format_out))) return D_FALSE;
  fromIbm64(val_in_out, kHostOrder);
  toDecD(val_in_out, kHostOrder);
  return D_TRUE;
}

D_EXPORT D_BOOL DutSwapReal8Ibm370ToDecG(void *val_in_out, D_INT4 format_in, D_INT4 format_out) {
  if (!argsOk(val_in_out, ibmOrder(format_in), decOrder(format_out))) return D_FALSE;
  fromIbm64(val_in_out, kHostOrder);
  toDecG(val_in_out, kHostOrder);
  return D_TRUE;
}

}  // extern "C"

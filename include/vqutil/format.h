/**
 * @defgroup format Data formats
 * Byte order and floating-point format conversion.
 *
 * Tells the host's integer byte order and real-number format, names them,
 * reverses byte order in place, and converts 4- and 8-byte reals in place
 * between IEEE 754, the DEC VAX formats F (4 bytes), D and G (8 bytes) and
 * the IBM System/370 hexadecimal format (4 and 8 bytes).
 *
 * Byte orders of the stored values (the "integer format" arguments):
 *   - IEEE values may be little-endian (D_INT_LITTLE_ENDIAN, 0) or
 *     big-endian (D_INT_BIG_ENDIAN, 1);
 *   - DEC F, D and G values are always stored as the VAX stores them:
 *     16-bit words, each little-endian, the most significant word first.
 *     Their format argument must be D_INT_LITTLE_ENDIAN;
 *   - IBM/370 values are big-endian: their format argument must be
 *     D_INT_BIG_ENDIAN.
 *
 * Field layouts (bit 0 = least significant bit of the value read as an
 * integer in its stated order):
 *   IEEE single  sign 1 / exponent 8 (bias 127) / fraction 23, value 1.f
 *   IEEE double  sign 1 / exponent 11 (bias 1023) / fraction 52, value 1.f
 *   DEC F        sign 1 / exponent 8 (bias 128) / fraction 23, value 0.1f
 *   DEC D        sign 1 / exponent 8 (bias 128) / fraction 55, value 0.1f
 *   DEC G        sign 1 / exponent 11 (bias 1024) / fraction 52, value 0.1f
 *   IBM single   sign 1 / exponent 7 (excess 64, base 16) / fraction 24
 *   IBM double   sign 1 / exponent 7 (excess 64, base 16) / fraction 56
 *
 * Common rules of the real conversions (DutSwapReal...):
 *   - They convert in place and return D_TRUE, or D_FALSE on failure.
 *   - A null pointer sets D_ERR_NULL_PTR (3). A format argument that is
 *     not allowed for its side sets D_ERR_VAL_INVALID (7). In both cases
 *     the value is left untouched.
 *   - Nothing rounds: bits that do not fit are dropped (truncation toward
 *     zero of the magnitude).
 *   - NaN and infinity are not recognised: their bits are converted as if
 *     they were ordinary numbers. IEEE denormals are not recognised either
 *     (except where a fatal assertion is noted): the hidden bit is assumed.
 *   - An exponent out of the target's range is not a failure: where noted,
 *     a warning goes out through DutWarning, the exponent is clamped, the
 *     fraction is kept and the call returns D_TRUE.
 *   - A value whose bytes are all zero is returned unchanged by every
 *     conversion.
 *
 * Thread safety: every function works only on the caller's value; the
 * texts returned by the ...ToStr functions are static and constant.
 * @{
 */
/**
 * @file
 * @ingroup format
 * @brief Data formats (format).
 */
#ifndef VQUTIL_FORMAT_H
#define VQUTIL_FORMAT_H

#include "types.h"

/** @{ */
/** Integer formats (byte orders). */
#define D_INT_LITTLE_ENDIAN 0
#define D_INT_BIG_ENDIAN 1
/** @} */

/** @{ */
/** Real-number formats. */
#define D_REAL_DEC_D 0
#define D_REAL_DEC_G 1
#define D_REAL_IEEE 2
#define D_REAL_IBM_370 3
/** @} */

D_BEGIN_DECLS

/** The host's integer format: D_INT_LITTLE_ENDIAN or D_INT_BIG_ENDIAN,
 * found by inspecting the bytes of the integer 1. A host on which 1 is
 * stored in neither order is a fatal assertion. */
D_EXPORT D_INT4 DutGetIntFormat(void);
/** The host's real format: always D_REAL_IEEE. */
D_EXPORT D_INT4 DutGetRealFormat(void);

/** Stores in *str the static text of an integer format ("LITTLE_ENDIAN",
 * "BIG_ENDIAN") and returns D_TRUE. Null str: D_ERR_NULL_PTR, D_FALSE. An
 * unknown format: D_FALSE without an error number, *str untouched. */
D_EXPORT D_BOOL DutIntFormatToStr(D_INT4 format, const char **str);
/** The same for real formats: "DEC_D", "DEC_G", "IEEE", "IBM_370". */
D_EXPORT D_BOOL DutRealFormatToStr(D_INT4 format, const char **str);

/** @{ */
/** Reverse the 2, 4, 8 or 16 bytes at val_in_out in place. A null pointer
 * is a fatal assertion ("val_in_out != NULL"). */
D_EXPORT void DutSwapTwoBytes(void *val_in_out);
D_EXPORT void DutSwapFourBytes(void *val_in_out);
D_EXPORT void DutSwapEightBytes(void *val_in_out);
D_EXPORT void DutSwapSixteenBytes(void *val_in_out);
/** @} */

/* ---- 4-byte reals ------------------------------------------------------ */

/** IEEE single (format_in 0 or 1) -> DEC F (format_out 0).
 * Exact for every IEEE exponent field 1..253, i.e. |x| in [2^-126, 2^127).
 * Zero and negative zero give zero. Outside that range there is no check:
 * exponent fields 254 and 255 (|x| >= 2^127, infinity, NaN) carry into the
 * sign bit and give an unrelated value; a denormal (field 0) becomes DEC
 * exponent 2 with its fraction kept, which DutSwapReal4DecFToIeee turns
 * back into the same denormal. */
D_EXPORT D_BOOL DutSwapReal4IeeeToDecF(void *val_in_out, D_INT4 format_in, D_INT4 format_out);
/** DEC F (format_in 0) -> IEEE single (format_out 0 or 1).
 * Exact for DEC exponents 3..255 (every DEC F value of magnitude at least
 * 2^-126). DEC exponent 2 gives an IEEE denormal pattern (the inverse of
 * the denormal case above, not the DEC value); exponents 0 and 1 with any
 * bit set borrow from the sign bit and give an unrelated value. */
D_EXPORT D_BOOL DutSwapReal4DecFToIeee(void *val_in_out, D_INT4 format_in, D_INT4 format_out);
/** IEEE single (format_in 0 or 1) -> IBM single (format_out 1).
 * Every IEEE exponent fits (IBM exponents 33..97). The 24-bit significand
 * is shifted right by 0..3 bits to align it on a hex digit, so up to three
 * low bits are truncated. Negative zero gives zero. A denormal is taken
 * as 1.f x 2^-127; infinity and NaN give IBM exponent 96 or 97. */
D_EXPORT D_BOOL DutSwapReal4IeeeToIbm370(void *val_in_out, D_INT4 format_in, D_INT4 format_out);
/** IBM single (format_in 1) -> IEEE single (format_out 0 or 1).
 * Exact for normalised values with exponents 34..96, and 33 when the
 * leading hex digit is 4 or more: about |x| in [2^-126, 2^128).
 * Exponent below 33: warning
 *   "DutSwapReal4Ibm370ToIeee: IBM_370 exponent underflows IEEE exponent\n"
 * and the exponent is taken as 33; above 96: warning
 *   "DutSwapReal4Ibm370ToIeee: IBM_370 exponent overflows IEEE exponent\n"
 * and it is taken as 96 (the value is clamped, not set to zero or
 * infinity). Only the low 8 bits of the computed IEEE exponent are kept,
 * so exponent 33 with a leading digit of 1 gives an all-ones exponent. An
 * unnormalised fraction (leading hex digit 0) is stored as it is, with
 * IEEE exponent 4E - 129, which is not the IBM value. */
D_EXPORT D_BOOL DutSwapReal4Ibm370ToIeee(void *val_in_out, D_INT4 format_in, D_INT4 format_out);
/** DEC F (format_in 0) -> IBM single (format_out 1), through IEEE single in
 * host order: the ranges and truncation of DutSwapReal4DecFToIeee and then
 * DutSwapReal4IeeeToIbm370 apply. Both formats are checked first. */
D_EXPORT D_BOOL DutSwapReal4DecFToIbm370(void *val_in_out, D_INT4 format_in, D_INT4 format_out);
/** IBM single (format_in 1) -> DEC F (format_out 0), through IEEE single in
 * host order: DutSwapReal4Ibm370ToIeee (with its warnings and clamping)
 * and then DutSwapReal4IeeeToDecF. Both formats are checked first. */
D_EXPORT D_BOOL DutSwapReal4Ibm370ToDecF(void *val_in_out, D_INT4 format_in, D_INT4 format_out);

/* ---- 8-byte reals ------------------------------------------------------ */

/** IEEE double (format_in 0 or 1) -> DEC D (format_out 0).
 * Exact for |x| in [2^-128, 2^127): the 52 fraction bits gain three zero
 * bits. Negative zero gives zero. An unbiased exponent e of 127 or more
 * (including infinity and NaN): warning
 *   "DutSwapReal8IeeeToDecD: IEEE exponent %d cannot fit in DEC_D exponent.\n"
 * with e, and DEC exponent 255 (the largest), fraction kept. There is no
 * underflow check: below 2^-128 the exponent wraps modulo 256 (2^-129 gives
 * DEC exponent 0, a DEC zero with bits set). A denormal input is a fatal
 * assertion ("D_IN_RANGE(ieee_exp, -1022, 1024)"). */
D_EXPORT D_BOOL DutSwapReal8IeeeToDecD(void *val_in_out, D_INT4 format_in, D_INT4 format_out);
/** IEEE double (format_in 0 or 1) -> DEC G (format_out 0).
 * Exact for every normal |x| below 2^1023. Negative zero gives zero. An
 * unbiased exponent e of 1023 or more (including infinity and NaN):
 * warning
 *   "DutSwapReal8IeeeToDecD: IEEE exponent %d cannot fit in DEC_G exponent.\n"
 * (that function name is kept in the text) with e, and e is taken as 1022
 * (DEC exponent 2047), fraction kept. A denormal input is a fatal
 * assertion ("D_IN_RANGE(ieee_exp, -1022, 1024)"). */
D_EXPORT D_BOOL DutSwapReal8IeeeToDecG(void *val_in_out, D_INT4 format_in, D_INT4 format_out);
/** DEC D (format_in 0) -> IEEE double (format_out 0 or 1).
 * Every DEC D exponent fits; the three low fraction bits are truncated.
 * A DEC exponent of 0 with bits set wraps to the IEEE value of exponent
 * +127 (IEEE field 1150). */
D_EXPORT D_BOOL DutSwapReal8DecDToIeee(void *val_in_out, D_INT4 format_in, D_INT4 format_out);
/** DEC G (format_in 0) -> IEEE double (format_out 0 or 1).
 * Exact for DEC exponents 3..2047. The exponent field is lowered by 2
 * without a check: exponent 2 gives an IEEE denormal pattern, and 0 or 1
 * wrap within the 11-bit field to 2046 or 2047. */
D_EXPORT D_BOOL DutSwapReal8DecGToIeee(void *val_in_out, D_INT4 format_in, D_INT4 format_out);
/** DEC D (format_in 0) -> DEC G (format_out 0).
 * Every DEC D exponent fits; the three low fraction bits are truncated.
 * A DEC exponent of 0 with other bits set gives DEC G exponent 896. */
D_EXPORT D_BOOL DutSwapReal8DecDToDecG(void *val_in_out, D_INT4 format_in, D_INT4 format_out);
/** DEC G (format_in 0) -> DEC D (format_out 0).
 * Exact for DEC G exponents 897..1150, i.e. |x| in [2^-128, 2^126). An
 * unbiased exponent e (G exponent - 1024) of 127 or more: warning
 *   "DutSwapReal8DecGToDecD: DEC_G exponent %d cannot fit in DEC_D exponent.\n"
 * with e, and DEC D exponent 254 (one below the largest), fraction kept.
 * No underflow check: below 2^-128 the exponent wraps modulo 256. A DEC G
 * exponent of 0 with other bits set is a fatal assertion
 * ("D_IN_RANGE(dec_g_exp, -1023, 1023)"). */
D_EXPORT D_BOOL DutSwapReal8DecGToDecD(void *val_in_out, D_INT4 format_in, D_INT4 format_out);
/** IEEE double (format_in 0 or 1) -> IBM double (format_out 1).
 * Exact for IEEE exponent fields 763..1274, i.e. |x| in [2^-260, 2^252):
 * the 53-bit significand moves left by 0..3 bits into the 56-bit fraction.
 * Negative zero gives zero. Below that range: warning
 *   "DutSwapReal8IeeeToIbm370: IEEE exponent underflows IBM_370 exponent\n"
 * and IBM exponent 0; above it (including infinity and NaN): warning
 *   "DutSwapReal8IeeeToIbm370: IEEE exponent overflows IBM_370 exponent\n"
 * and IBM exponent 127; the fraction is kept in both cases. */
D_EXPORT D_BOOL DutSwapReal8IeeeToIbm370(void *val_in_out, D_INT4 format_in, D_INT4 format_out);
/** IBM double (format_in 1) -> IEEE double (format_out 0 or 1).
 * Every IBM exponent fits (IEEE fields 763..1274), so there is no
 * clamping. Normalised values lose up to three low fraction bits
 * (truncated). An unnormalised fraction (leading hex digit 0) is stored as
 * it is with IEEE exponent 4E + 767, which is not the IBM value. */
D_EXPORT D_BOOL DutSwapReal8Ibm370ToIeee(void *val_in_out, D_INT4 format_in, D_INT4 format_out);
/** @{ */
/** DEC D or DEC G (format_in 0) -> IBM double (format_out 1), through IEEE
 * double in host order: the DEC -> IEEE and IEEE -> IBM rules above apply
 * in turn. Both formats are checked first. */
D_EXPORT D_BOOL DutSwapReal8DecDToIbm370(void *val_in_out, D_INT4 format_in, D_INT4 format_out);
D_EXPORT D_BOOL DutSwapReal8DecGToIbm370(void *val_in_out, D_INT4 format_in, D_INT4 format_out);
/** @} */
/** @{ */
/** IBM double (format_in 1) -> DEC D or DEC G (format_out 0), through IEEE
 * double in host order: the IBM -> IEEE and IEEE -> DEC rules above apply
 * in turn (so IBM values of 2^127 or more reach DEC D with its warning and
 * exponent 255). Both formats are checked first. */
D_EXPORT D_BOOL DutSwapReal8Ibm370ToDecD(void *val_in_out, D_INT4 format_in, D_INT4 format_out);
D_EXPORT D_BOOL DutSwapReal8Ibm370ToDecG(void *val_in_out, D_INT4 format_in, D_INT4 format_out);
/** @} */

/* ---- Arrays of reals ----------------------------------------------------- */

/** @{ */
/** Array forms, an extension of the family for bulk conversion: each real conversion
 * above also has an array form, named after it with
 * "Array" appended, that converts `count` consecutive values (4 or 8 bytes
 * each, no padding) in place:
 *   D_BOOL DutSwapReal4IeeeToIbm370Array(void *values, D_UINT4 count,
 *                                        D_INT4 format_in, D_INT4 format_out);
 * Every value gets exactly the bytes the per-value call gives it, and the
 * warnings and fatal assertions of the per-value call, once per value and
 * in array order. The arguments are checked once, before any value
 * changes: a null array with a count above 0 sets D_ERR_NULL_PTR, a format
 * not allowed for its side sets D_ERR_VAL_INVALID (even with count 0), and
 * both return D_FALSE. A null array with a count of 0 converts nothing and
 * returns D_TRUE. Values are read and written with byte copies, so the
 * array needs no particular alignment. */
D_EXPORT D_BOOL DutSwapReal4IeeeToDecFArray(void *values, D_UINT4 count, D_INT4 format_in, D_INT4 format_out);
D_EXPORT D_BOOL DutSwapReal4DecFToIeeeArray(void *values, D_UINT4 count, D_INT4 format_in, D_INT4 format_out);
D_EXPORT D_BOOL DutSwapReal4IeeeToIbm370Array(void *values, D_UINT4 count, D_INT4 format_in, D_INT4 format_out);
D_EXPORT D_BOOL DutSwapReal4Ibm370ToIeeeArray(void *values, D_UINT4 count, D_INT4 format_in, D_INT4 format_out);
D_EXPORT D_BOOL DutSwapReal4DecFToIbm370Array(void *values, D_UINT4 count, D_INT4 format_in, D_INT4 format_out);
D_EXPORT D_BOOL DutSwapReal4Ibm370ToDecFArray(void *values, D_UINT4 count, D_INT4 format_in, D_INT4 format_out);
D_EXPORT D_BOOL DutSwapReal8IeeeToDecDArray(void *values, D_UINT4 count, D_INT4 format_in, D_INT4 format_out);
D_EXPORT D_BOOL DutSwapReal8IeeeToDecGArray(void *values, D_UINT4 count, D_INT4 format_in, D_INT4 format_out);
D_EXPORT D_BOOL DutSwapReal8DecDToIeeeArray(void *values, D_UINT4 count, D_INT4 format_in, D_INT4 format_out);
D_EXPORT D_BOOL DutSwapReal8DecGToIeeeArray(void *values, D_UINT4 count, D_INT4 format_in, D_INT4 format_out);
D_EXPORT D_BOOL DutSwapReal8DecDToDecGArray(void *values, D_UINT4 count, D_INT4 format_in, D_INT4 format_out);
D_EXPORT D_BOOL DutSwapReal8DecGToDecDArray(void *values, D_UINT4 count, D_INT4 format_in, D_INT4 format_out);
D_EXPORT D_BOOL DutSwapReal8IeeeToIbm370Array(void *values, D_UINT4 count, D_INT4 format_in, D_INT4 format_out);
D_EXPORT D_BOOL DutSwapReal8Ibm370ToIeeeArray(void *values, D_UINT4 count, D_INT4 format_in, D_INT4 format_out);
D_EXPORT D_BOOL DutSwapReal8DecDToIbm370Array(void *values, D_UINT4 count, D_INT4 format_in, D_INT4 format_out);
D_EXPORT D_BOOL DutSwapReal8DecGToIbm370Array(void *values, D_UINT4 count, D_INT4 format_in, D_INT4 format_out);
D_EXPORT D_BOOL DutSwapReal8Ibm370ToDecDArray(void *values, D_UINT4 count, D_INT4 format_in, D_INT4 format_out);
D_EXPORT D_BOOL DutSwapReal8Ibm370ToDecGArray(void *values, D_UINT4 count, D_INT4 format_in, D_INT4 format_out);
/** @} */

D_END_DECLS

/** @} */
#endif /* VQUTIL_FORMAT_H */

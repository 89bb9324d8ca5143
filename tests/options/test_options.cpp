// Options: creation, typed values, flags, legal values, the commit rules
// and change callbacks; values as text (lists parsed from the lexer, the
// dump, the real-number format DutRealToStr follows); an option naming a
// log file. The command transcripts pin the messages of the other parses,
// of the verify functions and of the log files.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <csetjmp>
#include <string>
#include <vector>

#include "support/output_capture.hpp"
#include "vqutil/callback.h"
#include "vqutil/error.h"
#include "vqutil/lex.h"
#include "vqutil/option.h"
#include "vqutil/strutil.h"

namespace {

using vqtest::OutputCapture;
using Strings = std::vector<std::string>;

enum class ParseEnd { Committed, Refused, LexError };

// Runs DutOptionParseValue over text with the quiet long-jump error
// function as the lexer's own, or with the global one when own is null.
// The frame holding the setjmp owns nothing with a destructor.
inline ParseEnd Parse(D_OPTION *option, const char *text, D_LEX_ERROR_FUNC own = DutLexQuietLongjmpErrorFunc) {
  std::jmp_buf jump;
  D_LEX *volatile lexer = nullptr;
  if (setjmp(jump) == D_LEX_JUMP_VALUE) return ParseEnd::LexError;
  lexer = DutLexCreate(D_LEX_ATT_STRING, text, D_LEX_ATT_ERROR_ARG, static_cast<void *>(&jump),
                       own != nullptr ? D_LEX_ATT_ERROR_FUNC : 0, own, 0);
  D_BOOL ok = DutOptionParseValue(option, lexer);
  DutLexDestroy(lexer);
  return ok ? ParseEnd::Committed : ParseEnd::Refused;
}

// The stored value of a numeric option.
inline D_REAL8 Num(D_OPTION *option) { return *static_cast<D_REAL8 *>(D_GOPT_VALUE(option)); }

inline std::vector<std::string> Items(const D_OPTION_STR_NODE *node) {
  std::vector<std::string> out;
  for (; node != nullptr; node = node->next) out.emplace_back(node->str);
  return out;
}

int g_calls = 0;
void Count(void *, void *, D_WORD) { ++g_calls; }

TEST(OptionCreate, FirstUseArgumentsDuplicatesAndDestroy) {
  DutErrNumSet(D_ERR_TIMEOUT_REACHED);
  ASSERT_NE(DutGetOptionTable(), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_TIMEOUT_REACHED) << "first use keeps the caller's number";
  EXPECT_STREQ(D_GCT_NAME(DutCbTypeNumLookup(D_CB_TYPE_OPTION_CHANGE)), "option_change");
  D_OPTION *option = DutOptionCreate("Mixed_Case", D_OPT_TYPE_STRING_LIST);
  ASSERT_NE(option, nullptr);
  EXPECT_STREQ(D_GOPT_NAME(option), "mixed_case");
  EXPECT_FAILS(DutOptionCreate("MIXED_case", D_OPT_TYPE_STRING), nullptr, D_ERR_ALREADY_EXISTS);
  EXPECT_EQ(DutOptionLookup("mIxEd_CaSe"), option);
  D_INT4 flag = -1;
  for (auto get : {DutOptionGetKnown, DutOptionGetRequired, DutOptionGetReadOnly}) {
    EXPECT_TRUE(get(option, &flag) && flag == 0);
  }
  EXPECT_TRUE(DutOptionGetType(option, &flag) && flag == D_OPT_TYPE_STRING_LIST);

  // Destroyed with its value and callbacks: a new option of the same name
  // starts clean, and no old callback runs.
  D_OPTION_STR_NODE b_node = {nullptr, "b"}, a_node = {&b_node, "a"};
  ASSERT_TRUE(DutOptionSetStrList(option, &a_node));
  ASSERT_NE(DutOptionChangeCbCreate(option, Count, 0), nullptr);
  EXPECT_TRUE(DutOptionDestroy(option));
  EXPECT_EQ(DutOptionLookup("mixed_case"), nullptr);
  D_OPTION *again = DutOptionCreate("mixed_case", D_OPT_TYPE_NUMERIC);
  g_calls = 0;
  ASSERT_TRUE(DutOptionSetNum(again, 1));
  EXPECT_EQ(g_calls, 0);
}

// Each typed setter and getter refuses an option of another type, an
// unknown value and null arguments; none of these changes a value. The
// setters store copies: what the caller changes afterwards stays out; a
// replaced list is freed (checked by the sanitizer builds).
TEST(OptionTyped, RefusalsChangeNothingAndValuesAreCopies) {
  D_OPTION *b = DutOptionCreate("w_bool", D_OPT_TYPE_BOOLEAN);
  D_OPTION *n = DutOptionCreate("w_num", D_OPT_TYPE_NUMERIC);
  D_OPTION *e = DutOptionCreate("w_enum", D_OPT_TYPE_ENUM);
  D_OPTION *s = DutOptionCreate("w_str", D_OPT_TYPE_STRING);
  D_OPTION *el = DutOptionCreate("w_enumlist", D_OPT_TYPE_ENUM_LIST);
  D_OPTION *sl = DutOptionCreate("w_strlist", D_OPT_TYPE_STRING_LIST);
  D_OPTION_STR_NODE last = {nullptr, "second"}, chain = {&last, "first"};
  D_INT4 flag = 0;
  const char *text = nullptr;
  const D_OPTION_STR_NODE *first = nullptr;
  vqtest::ExpectRefused(D_ERR_NULL_PTR,
                        {AS_WORD(DutOptionCreate(nullptr, D_OPT_TYPE_STRING)), AS_WORD(DutOptionLookup(nullptr)),
                         AS_WORD(DutOptionDestroy(nullptr)), AS_WORD(DutOptionGetNum(n, nullptr)),
                         AS_WORD(DutOptionGetStrList(nullptr, &first)), AS_WORD(DutOptionSetEnum(e, nullptr)),
                         AS_WORD(DutOptionGetType(nullptr, &flag)), AS_WORD(DutOptionGetKnown(b, nullptr)),
                         AS_WORD(DutOptionSetRequired(nullptr, 1)), AS_WORD(DutOptionSetUnknown(nullptr)),
                         AS_WORD(DutOptionSetVerifyFunc(nullptr, nullptr, nullptr)),
                         AS_WORD(DutOptionChangeCbLookup(n, nullptr, 0)),
                         AS_WORD(DutOptionChangeCbCreate(n, nullptr, 0)),
                         AS_WORD(DutOptionValToStr(nullptr)), AS_WORD(DutRealToStrCopy(1.0, nullptr))});
  // The type wins over unknown.
  vqtest::ExpectRefused(D_ERR_TYPE_INVALID,
                        {AS_WORD(DutOptionSetBool(n, 1)), AS_WORD(DutOptionSetEnumList(sl, &chain)),
                         AS_WORD(DutOptionSetStrList(el, &chain)), AS_WORD(DutOptionGetStr(e, &text)),
                         AS_WORD(DutOptionSetEnum(s, "x")),
                         AS_WORD(DutOptionLegValAdd(DutOptionLookup("editor"), "x"))});
  vqtest::ExpectRefused(D_ERR_VAL_INVALID,
                        {AS_WORD(DutOptionCreate("t_neg", -1)), AS_WORD(DutOptionCreate("t_seven", 7)),
                         AS_WORD(DutOptionSetBool(b, 2)), AS_WORD(DutOptionSetReadOnly(n, 2))});
  EXPECT_FAILS(DutOptionGetBool(b, &flag), D_FALSE, D_ERR_VAL_UNKNOWN);
  EXPECT_FAILS(DutOptionUnset("editor"), D_FALSE, D_ERR_VAL_REQUIRED);
  for (D_OPTION *o : {b, n, e, s, el, sl}) EXPECT_FALSE(D_GOPT_KNOWN(o)) << o->name;

  EXPECT_TRUE(DutOptionSetBool(b, 1) && DutOptionGetBool(b, &flag) && flag == 1);
  char mine[] = "caller text";
  ASSERT_TRUE(DutOptionSetStr(s, mine));
  mine[0] = 'X';
  ASSERT_TRUE(DutOptionGetStr(s, &text));
  EXPECT_TRUE(std::string(text) == "caller text" && text == D_GOPT_VALUE(s)) << "the stored text";
  ASSERT_TRUE(DutOptionSetStrList(sl, &chain));
  last.str = "changed";
  ASSERT_TRUE(DutOptionSetEnumList(el, &chain));
  ASSERT_TRUE(DutOptionSetStrList(sl, &chain));
  chain.str = "gone";
  ASSERT_TRUE(DutOptionGetStrList(sl, &first));
  EXPECT_EQ(Items(first), (Strings{"first", "changed"}));
  ASSERT_TRUE(DutOptionGetEnumList(el, &first));
  EXPECT_EQ(Items(first), (Strings{"first", "changed"}));
  // Two standard options, a string and a string list, are read and set as
  // enumerated too; old names find them.
  D_OPTION *unique = DutOptionLookup("Unique_Datagroup");
  ASSERT_TRUE(DutOptionSetEnum(unique, "_host_42") && DutOptionGetEnum(unique, &text));
  EXPECT_STREQ(text, "_host_42");
  ASSERT_TRUE(DutOptionSetEnumList(DutOptionLookup("DATAGROUPS"), &chain));
  EXPECT_STREQ(DutOptionValToStr(DutOptionLookup("subjects")), "\"gone\", \"changed\"");
  EXPECT_EQ(DutOptionLookup("datagroups_x"), nullptr);
}

TEST(OptionLegalValues, CaseDuplicatesAndRefusals) {
  D_OPTION *color = DutOptionCreate("color", D_OPT_TYPE_ENUM);
  // Without legal values any word goes.
  ASSERT_TRUE(DutOptionSetEnum(color, "Anything"));
  EXPECT_EQ(DutOptionLegValTraverse(color, [](D_WORD, D_WORD, void *) -> D_WORD { return 1; }, nullptr), 0);
  ASSERT_TRUE(DutOptionLegValAdd(color, "Red") && DutOptionLegValAdd(color, "green"));
  EXPECT_FAILS(DutOptionLegValAdd(color, "RED"), D_FALSE, D_ERR_ALREADY_EXISTS);
  EXPECT_FAILS(DutOptionLegValAdd(color, "UnKnown"), D_FALSE, D_ERR_VAL_INVALID);
  std::string seen;
  auto collect = [](D_WORD key, D_WORD value, void *arg) -> D_WORD {
    *static_cast<std::string *>(arg) += reinterpret_cast<const char *>(key) + std::string(key == value ? " " : "! ");
    return 0;
  };
  DutOptionLegValTraverse(color, collect, &seen);
  EXPECT_TRUE(seen == "green red " || seen == "red green ") << seen;
  ASSERT_TRUE(DutOptionSetEnum(color, "GREEN"));
  EXPECT_FAILS(DutOptionSetEnum(color, "blue"), D_FALSE, D_ERR_VAL_INVALID);
  EXPECT_STREQ(DutOptionValToStr(color), "GREEN");
  // Setting by name skips the legal-value check.
  ASSERT_NE(DutOptionSet("color", "blue"), nullptr);
  EXPECT_STREQ(DutOptionValToStr(color), "blue");
}

// A verify function that checks the number was cleared before the call,
// then refuses with g_verify_error (0: without a number) or accepts (-1).
D_INT4 g_verify_error = 0;
D_BOOL Verify(D_OPTION *, void *, void *) {
  EXPECT_EQ(DutErrNumGet(), 0);
  if (g_verify_error > 0) DutErrNumSet(g_verify_error);
  return g_verify_error < 0 ? D_TRUE : D_FALSE;
}

// A change is refused when read-only, when unknown is given to a required
// option, and when the verify function refuses ("verify failed" unless it
// set its own number); refused changes keep the value and call nobody. The
// library's own verify functions pass unknown and refuse with their
// numbers.
TEST(OptionCommit, ReadOnlyRequiredAndVerify) {
  OutputCapture capture;
  D_OPTION *n = DutOptionCreate("c_num", D_OPT_TYPE_NUMERIC);
  ASSERT_TRUE(DutOptionSetNum(n, 1.0) && DutOptionChangeCbCreate(n, Count, 0));
  g_calls = 0;
  ASSERT_TRUE(DutOptionSetReadOnly(n, 1));
  EXPECT_FAILS(DutOptionSetNum(n, 2.0), D_FALSE, D_ERR_READ_ONLY);
  ASSERT_TRUE(DutOptionSetReadOnly(n, 0) && DutOptionSetRequired(n, 1));
  EXPECT_FAILS(DutOptionSetUnknown(n), D_FALSE, D_ERR_VAL_REQUIRED);
  ASSERT_TRUE(DutOptionSetRequired(n, 0) && DutOptionSetVerifyFunc(n, Verify, nullptr));
  D_OPTION_VERIFY_FUNC func = nullptr;
  EXPECT_TRUE(DutOptionGetVerifyFunc(n, &func) && func == &Verify);
  g_verify_error = 0;
  DutErrNumSet(D_ERR_TIMEOUT_REACHED);
  EXPECT_FALSE(DutOptionSetNum(n, 3.0));
  EXPECT_EQ(DutErrNumGet(), D_ERR_VERIFY_FAILED);
  g_verify_error = D_ERR_VAL_INVALID;
  EXPECT_FAILS(DutOptionSetNum(n, 4.0), D_FALSE, D_ERR_VAL_INVALID);
  EXPECT_TRUE(Num(n) == 1.0 && g_calls == 0);
  g_verify_error = -1;
  ASSERT_TRUE(DutOptionSetUnknown(n));
  EXPECT_EQ(g_calls, 1);
  ASSERT_TRUE(DutOptionSetVerifyFunc(n, DutOptionVerifyNonNeg, nullptr) && DutOptionSetUnknown(n));
  EXPECT_FAILS(DutOptionSetNum(n, -0.5), D_FALSE, D_ERR_VAL_TOO_SMALL);
  ASSERT_TRUE(DutOptionSetVerifyFunc(n, DutOptionVerifyInt2, nullptr) && DutOptionSetUnknown(n));
  EXPECT_FAILS(DutOptionSetNum(n, -32769), D_FALSE, D_ERR_VAL_INVALID);
  EXPECT_FAILS(DutOptionSetStr(DutOptionLookup("real_number_format"), "%gx"), D_FALSE, D_ERR_VAL_INVALID);
  // An override prefix in any case; DutRealToStr follows the format.
  ASSERT_TRUE(DutOptionSetStr(DutOptionLookup("real_number_format"), "OvErRiDe:%.1e"));
  char buffer[64];
  EXPECT_EQ(DutRealToStrCopy(2.5, buffer), buffer);
  EXPECT_STREQ(buffer, "2.5e+00");
}

// Records "<arg>=<value in the option>" per call, and checks that the data
// record carries the callback being called and the stored value.
std::string g_seen;
void Observe(void *object, void *data, D_WORD arg) {
  auto *option = static_cast<D_OPTION *>(object);
  auto *change = static_cast<D_OPTION_CHANGE_DATA *>(data);
  D_WORD own_arg = 0;
  EXPECT_TRUE(DutCbGetArgument(change->cb, &own_arg) && own_arg == arg);
  EXPECT_EQ(change->value, D_GOPT_VALUE(option));
  g_seen += reinterpret_cast<const char *>(arg) +
            (D_GOPT_KNOWN(option) ? "=" + std::to_string(Num(option)) : std::string("=?")) + " ";
}

TEST(OptionChangeCallbacks, OwnAndGlobalMergedByPriorityAfterTheStoreAndCopies) {
  D_OPTION *n = DutOptionCreate("cb_num", D_OPT_TYPE_NUMERIC);
  D_OPTION *other = DutOptionCreate("cb_other", D_OPT_TYPE_NUMERIC);
  static const char kOwn[] = "own", kGlobal[] = "global";
  D_CB *own = DutOptionChangeCbCreate(n, Observe, reinterpret_cast<D_WORD>(kOwn));
  D_CB *global = DutOptionChangeCbCreate(nullptr, Observe, reinterpret_cast<D_WORD>(kGlobal));
  ASSERT_TRUE(own && global && DutOptionChangeCbLookup(n, Observe, reinterpret_cast<D_WORD>(kOwn)) == own);
  ASSERT_TRUE(DutCbSetPriority(global, 5));
  auto seen = [](auto change) {
    g_seen.clear();
    change();
    return g_seen;
  };
  EXPECT_EQ(seen([&] { ASSERT_TRUE(DutOptionSetNum(n, 7.5)); }), "global=7.500000 own=7.500000 ");
  ASSERT_TRUE(DutCbSetPriority(own, 9));
  EXPECT_EQ(seen([&] { ASSERT_TRUE(DutOptionSetUnknown(n)); }), "own=? global=? ");
  // The global callback runs for every option, the own one only for n.
  EXPECT_EQ(seen([&] { ASSERT_TRUE(DutOptionSetNum(other, 1.0)); }), "global=1.000000 ");
  DutCbDestroy(global);

  // The library's copy callbacks mirror a value into a variable, numbers
  // cut toward zero and clamped.
  D_OPTION *b = DutOptionCreate("mirror_bool", D_OPT_TYPE_BOOLEAN);
  D_INT4 as_int = 99, as_int4 = 99, as_bool = 99;
  ASSERT_NE(DutOptionChangeCbCreate(other, DutCbOptionCopyInt, reinterpret_cast<D_WORD>(&as_int)), nullptr);
  ASSERT_NE(DutOptionChangeCbCreate(other, DutCbOptionCopyInt4, reinterpret_cast<D_WORD>(&as_int4)), nullptr);
  ASSERT_NE(DutOptionChangeCbCreate(b, DutCbOptionCopyBool, reinterpret_cast<D_WORD>(&as_bool)), nullptr);
  const struct {
    D_REAL8 value;
    D_INT4 expected;
  } cases[] = {{3.9, 3}, {-2.7, -2}, {1e12, INT_MAX}, {-1e12, INT_MIN}, {std::nan(""), 0}};
  for (const auto &c : cases) {
    ASSERT_TRUE(DutOptionSetNum(other, c.value));
    EXPECT_EQ(as_int, c.expected) << c.value;
    EXPECT_EQ(as_int4, c.expected) << c.value;
  }
  ASSERT_TRUE(DutOptionSetBool(b, 1));
  EXPECT_EQ(as_bool, 1);
}


// By name: no type checks on the stored copy, and a printed line for each
// kind of failure; the words of the types.
TEST(OptionByName, SetUnsetNumericHelpersAndTypeWords) {
  OutputCapture capture;
  D_OPTION *b = DutOptionCreate("n_bool", D_OPT_TYPE_BOOLEAN);
  D_OPTION *n = DutOptionCreate("n_num", D_OPT_TYPE_NUMERIC);
  D_OPTION *nl = DutOptionCreate("n_numlist", D_OPT_TYPE_NUMERIC_LIST);
  D_INT4 five = 5;  // no 0/1 check by name
  void *stored = DutOptionSet("N_BOOL", &five);
  EXPECT_TRUE(stored == D_GOPT_VALUE(b) && *static_cast<D_INT4 *>(stored) == 5);
  D_REAL8 one = 1.0;
  EXPECT_TRUE(DutOptionSet("n_numlist", &one) == nullptr && !D_GOPT_KNOWN(nl));
  EXPECT_EQ(DutOptionGetNumValue("n_num"), 0.0);  // unknown value
  ASSERT_NE(DutOptionSetNumValue("n_num", 2.25), nullptr);
  EXPECT_EQ(DutOptionGetNumValue("N_Num"), 2.25);
  EXPECT_EQ(DutOptionGetValue("n_num"), D_GOPT_VALUE(n));
  EXPECT_EQ(capture.Take(),
            "WARNING: utOptionSet: cannot set option <n_numlist>.\n"
            "WARNING: utOptionSet: setting type 5 not implemented.\n");
  EXPECT_TRUE(!DutOptionSet("nothing_here", &five) && DutOptionGetNumValue("missing") == 0.0 &&
              !DutOptionSetNumValue("n_bool", 1.0) && !DutOptionGetValue("missing") && !DutOptionUnset("missing"));
  EXPECT_EQ(capture.Take(),
            "DutOptionSet: unknown option <nothing_here>\n"
            "DutOptionSetNumValue: Unknown option: missing\n"
            "DutOptionSetNumValue: option n_bool not numeric\n"
            "WARNING: DutOptionGetValue: unknown option <missing>.\n"
            "Cannot unset <missing>: no such option.\n");
  EXPECT_TRUE(DutOptionUnset("n_num"));
  EXPECT_EQ(DutOptionGetValue("n_num"), nullptr);
  const char *words[] = {"boolean", "enumerated", "numeric", "string", "enumerated list", "numeric list",
                         "string list", "bad type"};
  for (D_INT4 t = 0; t < 8; ++t) EXPECT_STREQ(DutOptionTypeToStr(t), words[t]);
  EXPECT_STREQ(DutOptionTypeToStr(-1), "bad type");
  EXPECT_EQ(capture.Take(),
            "WARNING: DutOptionTypeToStr: bad option type 7.\nWARNING: DutOptionTypeToStr: bad option type -1.\n");
}

// Also a log-file option without its kind, and formatting a real once the
// format option is gone.
TEST(OptionDeath, AssertionsOnNullsWrongTypesUnknownCopiesAndMissingParts) {
  VQTEST_EXPECT_ASSERTION(DutOptionSet("editor", nullptr), "option_value != NULL");
  VQTEST_EXPECT_ASSERTION(DutOptionSort(nullptr), "num_options_return != NULL");
  VQTEST_EXPECT_ASSERTION(DutOptionDump(nullptr, nullptr), "output_func");
  VQTEST_EXPECT_ASSERTION(DutOptionLegValTraverse(DutOptionLookup("editor"),
                                               [](D_WORD, D_WORD, void *) -> D_WORD { return 0; }, nullptr),
                       "D_GOPT_TYPE\\(option\\) == D_OPT_TYPE_ENUM");
  static D_INT4 target = 0;
  D_OPTION *b = DutOptionCreate("mirror_gone", D_OPT_TYPE_BOOLEAN);
  ASSERT_NE(DutOptionChangeCbCreate(b, DutCbOptionCopyBool, reinterpret_cast<D_WORD>(&target)), nullptr);
  VQTEST_EXPECT_ASSERTION(DutOptionSetUnknown(b), "data->value != NULL");
  D_OPTION *log = DutOptionCreate("lf_nokind", D_OPT_TYPE_STRING);
  ASSERT_TRUE(DutOptionSetVerifyFunc(log, DutOptionVerifyLogFile, nullptr));
  VQTEST_EXPECT_ASSERTION(DutOptionSetStr(log, "/tmp/vq_optlog_nokind.log"), "D_NULL != arg");
  VQTEST_EXPECT_ASSERTION(
      {
        DutOptionDestroy(DutOptionLookup("real_number_format"));
        DutRealToStr(1.0);
      },
      "D_NULL != utRealNumberFormat");
}

// Items are identifiers, strings or file names; an error after some items
// frees them (whichever error function jumps) and keeps the old list; so
// does a refused list.
TEST(OptionParse, ListsInOrderAndErrorsKeepTheOldList) {
  D_OPTION *el = DutOptionCreate("p_enumlist", D_OPT_TYPE_ENUM_LIST);
  D_OPTION *sl = DutOptionCreate("p_strlist", D_OPT_TYPE_STRING_LIST);
  const D_OPTION_STR_NODE *first = nullptr;
  EXPECT_EQ(Parse(el, "tcp, udp ,Local"), ParseEnd::Committed);
  EXPECT_EQ(Parse(el, "a, b, , c"), ParseEnd::LexError);
  DutLexSetUserErrorFunc(DutLexQuietLongjmpErrorFunc);  // a global error function that jumps: no item leaks
  EXPECT_EQ(Parse(el, "d, e, , f", nullptr), ParseEnd::LexError);
  EXPECT_EQ(Parse(sl, "\"x y\", /tmp/z.log"), ParseEnd::Committed);
  EXPECT_EQ(Parse(sl, "\"ok\", \"broken"), ParseEnd::LexError);
  ASSERT_TRUE(DutOptionSetReadOnly(el, 1));
  EXPECT_EQ(Parse(el, "a, b"), ParseEnd::Refused);
  EXPECT_EQ(DutErrNumGet(), D_ERR_READ_ONLY);
  ASSERT_TRUE(DutOptionGetEnumList(el, &first));
  EXPECT_EQ(Items(first), (Strings{"tcp", "udp", "Local"}));
  EXPECT_STREQ(DutOptionValToStr(sl), "\"x y\", \"/tmp/z.log\"");
}

// One option by name, or all but the hidden ones sorted by name.
TEST(OptionText, DumpOneOrAllButTheHiddenSortedByName) {
  ASSERT_TRUE(DutOptionSetStr(DutOptionCreate("d_visible", D_OPT_TYPE_STRING), "v"));
  DutOptionCreate("_d_hidden", D_OPT_TYPE_BOOLEAN);
  DutOptionCreate("aaa_first", D_OPT_TYPE_NUMERIC);
  auto dump = [](const char *name, D_BOOL expected) {
    vqtest::Captured().clear();
    EXPECT_EQ(DutOptionDump(name, vqtest::CapturePrint), expected) << (name ? name : "all");
    return vqtest::Captured();
  };
  EXPECT_EQ(dump("D_VISIBLE", D_TRUE) + dump("_d_hidden", D_TRUE) + dump("nope", D_FALSE),
            "d_visible \"v\"\n_d_hidden UNKNOWN\nNo option named <nope>\n");
  const std::string all = dump(nullptr, D_TRUE);
  EXPECT_EQ(all.find("_d_hidden"), std::string::npos);
  EXPECT_EQ(all.find("aaa_first UNKNOWN\n"), 0u);
  EXPECT_LT(all.find("\nbackup_name UNKNOWN\n"), all.find("\nd_visible \"v\"\n"));
  EXPECT_LT(all.find("\nd_visible \"v\"\n"), all.find("\neditor \"vi\"\n"));
}

}  // namespace

// Option creation, typed values, flags, legal values, the commit rules and
// change callbacks.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "options_support.hpp"
#include "vqutil/callback.h"
#include "vqutil/memory.h"
#include "vqutil/thread.h"

using opttest::Items;
using opttest::NodeChain;
using opttest::Num;
using opttest::OutputCapture;
using opttest::Stored;
using Strings = std::vector<std::string>;

namespace {

int g_calls = 0;
void Count(void *, void *, D_WORD) { ++g_calls; }

TEST(OptionCreate, FirstUseArgumentsDuplicatesAndDestroy) {
  DutErrNumSet(D_ERR_TIMEOUT_REACHED);
  ASSERT_NE(DutGetOptionTable(), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_TIMEOUT_REACHED) << "first use keeps the caller's number";
  D_CB_TYPE *type = DutCbTypeNumLookup(D_CB_TYPE_OPTION_CHANGE);
  ASSERT_NE(type, nullptr);
  EXPECT_STREQ(D_GCT_NAME(type), "option_change");
  EXPECT_EQ(D_GCT_GLOB_FLAG(type), D_CB_GLOBALS_OK);
  EXPECT_EQ(D_GCT_LOCAL_FLAG(type), D_CB_LOCAL_INDIRECT);

  EXPECT_FAILS(DutOptionCreate(nullptr, D_OPT_TYPE_STRING), nullptr, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutOptionCreate("t_neg", -1), nullptr, D_ERR_VAL_INVALID);
  EXPECT_FAILS(DutOptionCreate("t_seven", 7), nullptr, D_ERR_VAL_INVALID);
  D_OPTION *option = DutOptionCreate("Mixed_Case", D_OPT_TYPE_STRING_LIST);
  ASSERT_NE(option, nullptr);
  EXPECT_STREQ(D_GOPT_NAME(option), "mixed_case");
  EXPECT_FAILS(DutOptionCreate("MIXED_case", D_OPT_TYPE_STRING), nullptr, D_ERR_ALREADY_EXISTS);
  EXPECT_EQ(DutOptionLookup("mIxEd_CaSe"), option);
  EXPECT_FAILS(DutOptionLookup(nullptr), nullptr, D_ERR_NULL_PTR);
  D_INT4 flag = -1;
  for (auto get : {DutOptionGetKnown, DutOptionGetRequired, DutOptionGetReadOnly}) {
    EXPECT_TRUE(get(option, &flag) && flag == 0);
  }
  EXPECT_TRUE(DutOptionGetType(option, &flag) && flag == D_OPT_TYPE_STRING_LIST);

  // Destroyed with its value and callbacks: a new option of the same name
  // starts clean, and no old callback runs.
  NodeChain chain({"a", "b"});
  ASSERT_TRUE(DutOptionSetStrList(option, chain.first()));
  ASSERT_NE(DutOptionChangeCbCreate(option, Count, 0), nullptr);
  EXPECT_TRUE(DutOptionDestroy(option));
  EXPECT_EQ(DutOptionLookup("mixed_case"), nullptr);
  D_OPTION *again = DutOptionCreate("mixed_case", D_OPT_TYPE_NUMERIC);
  g_calls = 0;
  ASSERT_TRUE(DutOptionSetNum(again, 1));
  EXPECT_EQ(g_calls, 0);
  EXPECT_FAILS(DutOptionDestroy(nullptr), D_FALSE, D_ERR_NULL_PTR);
}

// Each typed setter and getter refuses an option of another type, an
// unknown value and null arguments; none of these changes a value.
TEST(OptionTyped, WrongTypeUnknownAndNullArguments) {
  D_OPTION *b = DutOptionCreate("w_bool", D_OPT_TYPE_BOOLEAN);
  D_OPTION *n = DutOptionCreate("w_num", D_OPT_TYPE_NUMERIC);
  D_OPTION *e = DutOptionCreate("w_enum", D_OPT_TYPE_ENUM);
  D_OPTION *el = DutOptionCreate("w_enumlist", D_OPT_TYPE_ENUM_LIST);
  D_OPTION *sl = DutOptionCreate("w_strlist", D_OPT_TYPE_STRING_LIST);
  NodeChain chain({"a"});
  D_INT4 flag = 0;
  const char *text = nullptr;
  const D_OPTION_STR_NODE *first = nullptr;
  const struct {
    std::function<D_BOOL()> call;
    D_INT4 err;
  } cases[] = {
      {[&] { return DutOptionSetBool(n, 1); }, D_ERR_TYPE_INVALID},
      {[&] { return DutOptionSetEnumList(sl, chain.first()); }, D_ERR_TYPE_INVALID},
      {[&] { return DutOptionSetStrList(el, chain.first()); }, D_ERR_TYPE_INVALID},
      {[&] { return DutOptionGetBool(b, &flag); }, D_ERR_VAL_UNKNOWN},
      {[&] { return DutOptionGetStr(e, &text); }, D_ERR_TYPE_INVALID},  // the type wins over unknown
      {[&] { return DutOptionGetNum(n, nullptr); }, D_ERR_NULL_PTR},
      {[&] { return DutOptionGetStrList(nullptr, &first); }, D_ERR_NULL_PTR},
      {[&] { return DutOptionSetEnum(e, nullptr); }, D_ERR_NULL_PTR},
      {[&] { return DutOptionGetType(nullptr, &flag); }, D_ERR_NULL_PTR},
      {[&] { return DutOptionGetKnown(b, nullptr); }, D_ERR_NULL_PTR},
      {[&] { return DutOptionSetRequired(nullptr, 1); }, D_ERR_NULL_PTR},
      {[&] { return DutOptionSetVerifyFunc(nullptr, nullptr, nullptr); }, D_ERR_NULL_PTR},
      {[&] { return DutOptionSetUnknown(nullptr); }, D_ERR_NULL_PTR},
      {[&] { return DutOptionSetBool(b, 2); }, D_ERR_VAL_INVALID},
      {[&] { return DutOptionSetReadOnly(n, 2); }, D_ERR_VAL_INVALID},
      {[] { return DutOptionUnset("editor"); }, D_ERR_VAL_REQUIRED},
  };
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    SCOPED_TRACE(i);
    EXPECT_FAILS(cases[i].call(), D_FALSE, cases[i].err);
  }
  for (D_OPTION *o : {b, n, e, el, sl}) EXPECT_FALSE(D_GOPT_KNOWN(o)) << o->name;
}

// The setters store copies: what the caller changes afterwards stays out;
// a replaced list is freed (checked by the sanitizer builds).
TEST(OptionTyped, ValuesAreCopies) {
  D_OPTION *b = DutOptionCreate("v_bool", D_OPT_TYPE_BOOLEAN);
  D_OPTION *s = DutOptionCreate("v_str", D_OPT_TYPE_STRING);
  D_OPTION *sl = DutOptionCreate("v_strlist", D_OPT_TYPE_STRING_LIST);
  D_OPTION *el = DutOptionCreate("v_enumlist", D_OPT_TYPE_ENUM_LIST);
  D_INT4 flag = 0;
  EXPECT_TRUE(DutOptionSetBool(b, 1) && DutOptionGetBool(b, &flag) && flag == 1);
  char mine[] = "caller text";
  ASSERT_TRUE(DutOptionSetStr(s, mine));
  mine[0] = 'X';
  const char *text = nullptr;
  ASSERT_TRUE(DutOptionGetStr(s, &text));
  EXPECT_STREQ(text, "caller text");
  EXPECT_EQ(text, D_GOPT_VALUE(s)) << "the getter hands out the stored text";
  NodeChain chain({"first", "second"});
  ASSERT_TRUE(DutOptionSetStrList(sl, chain.first()));
  chain.node(1).str = "changed";
  ASSERT_TRUE(DutOptionSetEnumList(el, chain.first()));
  ASSERT_TRUE(DutOptionSetStrList(sl, chain.first()));
  const D_OPTION_STR_NODE *first = nullptr;
  ASSERT_TRUE(DutOptionGetStrList(sl, &first));
  chain.node(0).str = "gone";
  EXPECT_EQ(Items(first), (Strings{"first", "changed"}));
  ASSERT_TRUE(DutOptionGetEnumList(el, &first));
  EXPECT_EQ(Items(first), (Strings{"first", "changed"}));
}

// Two standard options, a string and a string list, read and set as
// enumerated; old names find them.
TEST(OptionTyped, SpecialNamesReadAsEnumeratedAndOldNamesFindThem) {
  D_OPTION *unique = DutOptionLookup("unique_subject");
  D_OPTION *subjects = DutOptionLookup("subjects");
  ASSERT_TRUE(unique && subjects);
  ASSERT_TRUE(DutOptionSetEnum(unique, "_host_42"));
  const char *text = nullptr;
  EXPECT_TRUE(DutOptionGetEnum(unique, &text) && std::string(text) == "_host_42");
  EXPECT_FAILS(DutOptionSetEnum(DutOptionCreate("plain_string", D_OPT_TYPE_STRING), "x"), D_FALSE,
               D_ERR_TYPE_INVALID);
  NodeChain chain({"s1", "s2"});
  ASSERT_TRUE(DutOptionSetEnumList(subjects, chain.first()));
  const D_OPTION_STR_NODE *first = nullptr;
  ASSERT_TRUE(DutOptionGetEnumList(subjects, &first));
  EXPECT_EQ(Items(first), (Strings{"s1", "s2"}));
  EXPECT_EQ(DutOptionLookup("Unique_Datagroup"), unique);
  EXPECT_EQ(DutOptionLookup("DATAGROUPS"), subjects);
  EXPECT_EQ(DutOptionLookup("application_x"), nullptr);
}

TEST(OptionLegalValues, CaseDuplicatesAndRefusals) {
  D_OPTION *color = DutOptionCreate("color", D_OPT_TYPE_ENUM);
  // Without legal values any word goes.
  ASSERT_TRUE(DutOptionSetEnum(color, "Anything"));
  EXPECT_EQ(DutOptionLegValTraverse(color, [](D_WORD, D_WORD, void *) -> D_WORD { return 1; }, nullptr), 0);
  ASSERT_TRUE(DutOptionLegValAdd(color, "Red"));
  ASSERT_TRUE(DutOptionLegValAdd(color, "green"));
  EXPECT_FAILS(DutOptionLegValAdd(color, "RED"), D_FALSE, D_ERR_ALREADY_EXISTS);
  EXPECT_FAILS(DutOptionLegValAdd(color, "UnKnown"), D_FALSE, D_ERR_VAL_INVALID);
  EXPECT_FAILS(DutOptionLegValAdd(DutOptionLookup("editor"), "x"), D_FALSE, D_ERR_TYPE_INVALID);
  Strings seen;
  DutOptionLegValTraverse(
      color,
      [](D_WORD key, D_WORD value, void *arg) -> D_WORD {
        EXPECT_EQ(key, value);
        static_cast<Strings *>(arg)->emplace_back(reinterpret_cast<const char *>(key));
        return 0;
      },
      &seen);
  std::sort(seen.begin(), seen.end());
  EXPECT_EQ(seen, (Strings{"green", "red"}));
  ASSERT_TRUE(DutOptionSetEnum(color, "GREEN"));
  EXPECT_STREQ(Stored(color), "GREEN");
  EXPECT_FAILS(DutOptionSetEnum(color, "blue"), D_FALSE, D_ERR_VAL_INVALID);
  EXPECT_STREQ(Stored(color), "GREEN");
  // Setting by name skips the legal-value check.
  ASSERT_NE(DutOptionSet("color", "blue"), nullptr);
  EXPECT_STREQ(Stored(color), "blue");
}

struct VerifyLog {
  int calls = 0;
  bool accept = true;
  D_INT4 own_error = 0;
  bool saw_null = false;
  D_INT4 error_seen = -1;
};

D_BOOL RecordingVerify(D_OPTION *, void *new_value, void *arg) {
  auto *log = static_cast<VerifyLog *>(arg);
  ++log->calls;
  log->error_seen = DutErrNumGet();
  log->saw_null = new_value == nullptr;
  if (log->own_error != 0) DutErrNumSet(log->own_error);
  return log->accept ? D_TRUE : D_FALSE;
}

// A change is refused when read-only, when unknown is given to a required
// option, and when the verify function refuses; refused changes keep the
// value and call nobody.
TEST(OptionCommit, ReadOnlyRequiredAndVerify) {
  D_OPTION *n = DutOptionCreate("c_num", D_OPT_TYPE_NUMERIC);
  ASSERT_NE(DutOptionChangeCbCreate(n, Count, 0), nullptr);
  ASSERT_TRUE(DutOptionSetNum(n, 1.0));
  g_calls = 0;
  ASSERT_TRUE(DutOptionSetReadOnly(n, 1));
  EXPECT_FAILS(DutOptionSetNum(n, 2.0), D_FALSE, D_ERR_READ_ONLY);
  ASSERT_TRUE(DutOptionSetReadOnly(n, 0));
  ASSERT_TRUE(DutOptionSetRequired(n, 1));
  EXPECT_FAILS(DutOptionSetUnknown(n), D_FALSE, D_ERR_VAL_REQUIRED);
  ASSERT_TRUE(DutOptionSetRequired(n, 0));

  VerifyLog log;
  ASSERT_TRUE(DutOptionSetVerifyFunc(n, RecordingVerify, &log));
  D_OPTION_VERIFY_FUNC func = nullptr;
  EXPECT_TRUE(DutOptionGetVerifyFunc(n, &func) && func == &RecordingVerify);
  log.accept = false;
  DutErrNumSet(D_ERR_TIMEOUT_REACHED);
  EXPECT_FALSE(DutOptionSetNum(n, 3.0));
  EXPECT_EQ(log.error_seen, 0);  // cleared before the call
  EXPECT_EQ(DutErrNumGet(), D_ERR_VERIFY_FAILED);
  log.own_error = D_ERR_VAL_INVALID;
  EXPECT_FAILS(DutOptionSetNum(n, 4.0), D_FALSE, D_ERR_VAL_INVALID);
  EXPECT_EQ(Num(n), 1.0);
  EXPECT_EQ(g_calls, 0);

  log.accept = true;
  log.own_error = 0;
  ASSERT_TRUE(DutOptionSetUnknown(n));
  EXPECT_TRUE(log.saw_null);
  EXPECT_EQ(g_calls, 1);
  // A null function removes verification.
  ASSERT_TRUE(DutOptionSetVerifyFunc(n, nullptr, nullptr));
  ASSERT_TRUE(DutOptionSetNum(n, 6.0));
  EXPECT_EQ(log.calls, 3);
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

TEST(OptionChangeCallbacks, OwnAndGlobalMergedByPriorityAfterTheStore) {
  D_OPTION *n = DutOptionCreate("cb_num", D_OPT_TYPE_NUMERIC);
  D_OPTION *other = DutOptionCreate("cb_other", D_OPT_TYPE_NUMERIC);
  static const char kOwn[] = "own", kGlobal[] = "global";
  D_CB *own = DutOptionChangeCbCreate(n, Observe, reinterpret_cast<D_WORD>(kOwn));
  D_CB *global = DutOptionChangeCbCreate(nullptr, Observe, reinterpret_cast<D_WORD>(kGlobal));
  ASSERT_TRUE(own && global);
  EXPECT_EQ(DutOptionChangeCbLookup(n, Observe, reinterpret_cast<D_WORD>(kOwn)), own);
  EXPECT_FAILS(DutOptionChangeCbLookup(n, nullptr, 0), nullptr, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutOptionChangeCbCreate(n, nullptr, 0), nullptr, D_ERR_NULL_PTR);
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
}

TEST(OptionChangeCallbacks, CopyCallbacksMirrorIntoVariables) {
  D_OPTION *n = DutOptionCreate("mirror_num", D_OPT_TYPE_NUMERIC);
  D_OPTION *b = DutOptionCreate("mirror_bool", D_OPT_TYPE_BOOLEAN);
  D_INT4 as_int = 99, as_int4 = 99, as_bool = 99;
  ASSERT_NE(DutOptionChangeCbCreate(n, DutCbOptionCopyInt, reinterpret_cast<D_WORD>(&as_int)), nullptr);
  ASSERT_NE(DutOptionChangeCbCreate(n, DutCbOptionCopyInt4, reinterpret_cast<D_WORD>(&as_int4)), nullptr);
  ASSERT_NE(DutOptionChangeCbCreate(b, DutCbOptionCopyBool, reinterpret_cast<D_WORD>(&as_bool)), nullptr);
  const struct {
    D_REAL8 value;
    D_INT4 expected;
  } cases[] = {{3.9, 3}, {-2.7, -2}, {1e12, INT_MAX}, {-1e12, INT_MIN}, {std::nan(""), 0}};
  for (const auto &c : cases) {
    ASSERT_TRUE(DutOptionSetNum(n, c.value));
    EXPECT_EQ(as_int, c.expected) << c.value;
    EXPECT_EQ(as_int4, c.expected) << c.value;
  }
  ASSERT_TRUE(DutOptionSetBool(b, 1));
  EXPECT_EQ(as_bool, 1);
}

// By name: no type checks on the stored copy, and a printed line for each
// kind of failure.
TEST(OptionByName, SetUnsetAndNumericHelpers) {
  OutputCapture capture;
  D_OPTION *b = DutOptionCreate("n_bool", D_OPT_TYPE_BOOLEAN);
  D_OPTION *n = DutOptionCreate("n_num", D_OPT_TYPE_NUMERIC);
  D_OPTION *nl = DutOptionCreate("n_numlist", D_OPT_TYPE_NUMERIC_LIST);
  D_INT4 five = 5;  // no 0/1 check by name
  void *stored = DutOptionSet("N_BOOL", &five);
  EXPECT_EQ(stored, D_GOPT_VALUE(b));
  EXPECT_EQ(*static_cast<D_INT4 *>(stored), 5);
  D_REAL8 one = 1.0;
  EXPECT_EQ(DutOptionSet("n_numlist", &one), nullptr);
  EXPECT_FALSE(D_GOPT_KNOWN(nl));
  EXPECT_EQ(DutOptionGetNumValue("n_num"), 0.0);  // unknown value
  ASSERT_NE(DutOptionSetNumValue("n_num", 2.25), nullptr);
  EXPECT_EQ(DutOptionGetNumValue("N_Num"), 2.25);
  EXPECT_EQ(DutOptionGetValue("n_num"), D_GOPT_VALUE(n));
  EXPECT_EQ(capture.Take(),
            "WARNING: utOptionSet: cannot set option <n_numlist>.\n"
            "WARNING: utOptionSet: setting type 5 not implemented.\n");
  const struct {
    std::function<bool()> call;
    const char *text;
  } failures[] = {
      {[&] { return !DutOptionSet("nothing_here", &five); }, "DutOptionSet: unknown option <nothing_here>\n"},
      {[] { return DutOptionGetNumValue("missing") == 0.0; }, "DutOptionSetNumValue: Unknown option: missing\n"},
      {[] { return !DutOptionSetNumValue("n_bool", 1.0); }, "DutOptionSetNumValue: option n_bool not numeric\n"},
      {[] { return !DutOptionGetValue("missing"); }, "WARNING: DutOptionGetValue: unknown option <missing>.\n"},
      {[] { return !DutOptionUnset("missing"); }, "Cannot unset <missing>: no such option.\n"},
  };
  for (const auto &f : failures) {
    EXPECT_TRUE(f.call()) << f.text;
    EXPECT_EQ(capture.Take(), f.text);
  }
  EXPECT_TRUE(DutOptionUnset("n_num"));
  EXPECT_EQ(DutOptionGetValue("n_num"), nullptr);
}

TEST(OptionDeath, AssertionsOnNullsWrongTypesAndUnknownCopies) {
  OPT_EXPECT_ASSERTION(DutOptionSet("editor", nullptr), "option_value != NULL");
  OPT_EXPECT_ASSERTION(DutOptionSort(nullptr), "num_options_return != NULL");
  OPT_EXPECT_ASSERTION(DutOptionDump(nullptr, nullptr), "output_func");
  OPT_EXPECT_ASSERTION(DutOptionLegValTraverse(DutOptionLookup("editor"),
                                               [](D_WORD, D_WORD, void *) -> D_WORD { return 0; }, nullptr),
                       "D_GOPT_TYPE\\(option\\) == D_OPT_TYPE_ENUM");
  static D_INT4 target = 0;
  D_OPTION *b = DutOptionCreate("mirror_gone", D_OPT_TYPE_BOOLEAN);
  ASSERT_NE(DutOptionChangeCbCreate(b, DutCbOptionCopyBool, reinterpret_cast<D_WORD>(&target)), nullptr);
  OPT_EXPECT_ASSERTION(DutOptionSetUnknown(b), "data->value != NULL");
}

// The library's verify functions pass unknown and refuse with their
// numbers (the command transcripts pin their messages).
TEST(OptionVerifyFunctions, RefusalsCarryTheirNumbers) {
  OutputCapture capture;
  D_OPTION *n = DutOptionCreate("vf_num", D_OPT_TYPE_NUMERIC);
  ASSERT_TRUE(DutOptionSetVerifyFunc(n, DutOptionVerifyNonNeg, nullptr));
  EXPECT_TRUE(DutOptionSetUnknown(n));
  EXPECT_FAILS(DutOptionSetNum(n, -0.5), D_FALSE, D_ERR_VAL_TOO_SMALL);
  ASSERT_TRUE(DutOptionSetVerifyFunc(n, DutOptionVerifyInt2, nullptr));
  EXPECT_TRUE(DutOptionSetUnknown(n));
  EXPECT_FAILS(DutOptionSetNum(n, -32769), D_FALSE, D_ERR_VAL_INVALID);
  EXPECT_FAILS(DutOptionSetStr(DutOptionLookup("real_number_format"), "%gx"), D_FALSE, D_ERR_VAL_INVALID);
  EXPECT_STREQ(opttest::Stored(DutOptionLookup("real_number_format")), "%g");
}

TEST(OptionTypes, WordsAndBadType) {
  OutputCapture capture;
  const char *expected[] = {"boolean", "enumerated", "numeric", "string", "enumerated list", "numeric list",
                            "string list", "bad type"};
  for (D_INT4 t = 0; t < 8; ++t) EXPECT_STREQ(DutOptionTypeToStr(t), expected[t]);
  EXPECT_EQ(capture.Take(), "WARNING: DutOptionTypeToStr: bad option type 7.\n");
  EXPECT_STREQ(DutOptionTypeToStr(-1), "bad type");
}

TEST(OptionThreads, ConcurrentCreationAndLookup) {
  ASSERT_TRUE(DutInitThreads());
  constexpr int kThreads = 4, kEach = 50;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < kEach; ++i) {
        std::string name = "thr_" + std::to_string(t) + "_" + std::to_string(i);
        D_OPTION *o = DutOptionCreate(name.c_str(), D_OPT_TYPE_NUMERIC);
        EXPECT_NE(o, nullptr);
        EXPECT_EQ(DutOptionLookup(name.c_str()), o);
      }
    });
  }
  for (auto &th : threads) th.join();
  D_INT4 count = 0;
  D_OPTION **sorted = DutOptionSort(&count);
  int ours = 0;
  for (D_INT4 i = 0; i < count; ++i) ours += std::strncmp(sorted[i]->name, "thr_", 4) == 0;
  EXPECT_EQ(ours, kThreads * kEach);
  DutFreeCheck(sorted, "sorted", __FILE__, __LINE__);
}

}  // namespace

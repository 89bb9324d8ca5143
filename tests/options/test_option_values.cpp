// Option creation, typed values, flags, legal values, the commit rules and
// change callbacks.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "options_support.hpp"
#include "vqutil/callback.h"
#include "vqutil/memory.h"
#include "vqutil/thread.h"

using opttest::Items;
using opttest::NodeChain;
using opttest::OutputCapture;

namespace {

TEST(OptionCreate, ArgumentErrorsAndDuplicates) {
  EXPECT_EQ(DutOptionCreate(nullptr, D_OPT_TYPE_STRING), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  EXPECT_EQ(DutOptionCreate("t_neg", -1), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID);
  EXPECT_EQ(DutOptionCreate("t_seven", 7), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID);
  // Both ends of the type range are accepted.
  EXPECT_NE(DutOptionCreate("c_bool", D_OPT_TYPE_BOOLEAN), nullptr);
  EXPECT_NE(DutOptionCreate("c_strlist", D_OPT_TYPE_STRING_LIST), nullptr);

  D_OPTION *option = DutOptionCreate("Mixed_Case", D_OPT_TYPE_NUMERIC);
  ASSERT_NE(option, nullptr);
  EXPECT_STREQ(D_GOPT_NAME(option), "mixed_case");
  EXPECT_EQ(DutOptionCreate("MIXED_case", D_OPT_TYPE_STRING), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_ALREADY_EXISTS);
  EXPECT_EQ(DutOptionLookup("mIxEd_CaSe"), option);

  D_INT4 flag = -1;
  ASSERT_TRUE(DutOptionGetKnown(option, &flag));
  EXPECT_EQ(flag, 0);
  ASSERT_TRUE(DutOptionGetRequired(option, &flag));
  EXPECT_EQ(flag, 0);
  ASSERT_TRUE(DutOptionGetReadOnly(option, &flag));
  EXPECT_EQ(flag, 0);
  ASSERT_TRUE(DutOptionGetType(option, &flag));
  EXPECT_EQ(flag, D_OPT_TYPE_NUMERIC);

  EXPECT_EQ(DutOptionLookup(nullptr), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  EXPECT_EQ(DutOptionLookup("no_such_option"), nullptr);
}

TEST(OptionCreate, DestroyRemovesOptionAndItsCallbacks) {
  D_OPTION *option = DutOptionCreate("doomed", D_OPT_TYPE_STRING);
  ASSERT_TRUE(DutOptionSetStr(option, "value"));
  static int calls = 0;
  D_CB_FUNC count = [](void *, void *, D_WORD) { ++calls; };
  ASSERT_NE(DutOptionChangeCbCreate(option, count, 0), nullptr);
  EXPECT_TRUE(DutOptionDestroy(option));
  EXPECT_EQ(DutOptionLookup("doomed"), nullptr);

  // A new option of the same name starts clean: no old callback runs.
  D_OPTION *again = DutOptionCreate("doomed", D_OPT_TYPE_STRING);
  ASSERT_NE(again, nullptr);
  EXPECT_FALSE(D_GOPT_KNOWN(again));
  calls = 0;
  ASSERT_TRUE(DutOptionSetStr(again, "x"));
  EXPECT_EQ(calls, 0);

  EXPECT_FALSE(DutOptionDestroy(nullptr));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

TEST(OptionCreate, StandardOptionsAndCallbackTypeExistOnFirstUse) {
  D_HASH_TABLE *table = DutGetOptionTable();
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(DutGetOptionTable(), table);

  D_CB_TYPE *type = DutCbTypeNumLookup(D_CB_TYPE_OPTION_CHANGE);
  ASSERT_NE(type, nullptr);
  EXPECT_STREQ(D_GCT_NAME(type), "option_change");
  EXPECT_EQ(D_GCT_GLOB_FLAG(type), D_CB_GLOBALS_OK);
  EXPECT_EQ(D_GCT_LOCAL_FLAG(type), D_CB_LOCAL_INDIRECT);

  D_OPTION *format = DutOptionLookup("real_number_format");
  ASSERT_NE(format, nullptr);
  EXPECT_EQ(D_GOPT_TYPE(format), D_OPT_TYPE_STRING);
  EXPECT_EQ(D_GOPT_REQUIRED(format), 1);
  EXPECT_EQ(D_GOPT_VERIFY_FUNC(format), &DutOptionRealNumberFormatVf);
  EXPECT_TRUE(D_GOPT_KNOWN(format));

  D_OPTION *editor = DutOptionLookup("editor");
  ASSERT_NE(editor, nullptr);
  EXPECT_EQ(D_GOPT_REQUIRED(editor), 1);
  const char *text = nullptr;
  ASSERT_TRUE(DutOptionGetStr(editor, &text));
  EXPECT_STREQ(text, "vi");
  EXPECT_FALSE(DutOptionUnset("editor"));
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_REQUIRED);
  EXPECT_STREQ(static_cast<const char *>(D_GOPT_VALUE(editor)), "vi");

  D_OPTION *backup = DutOptionLookup("backup_name");
  ASSERT_NE(backup, nullptr);
  EXPECT_EQ(D_GOPT_TYPE(backup), D_OPT_TYPE_STRING);
  EXPECT_EQ(D_GOPT_REQUIRED(backup), 0);
  EXPECT_FALSE(D_GOPT_KNOWN(backup));
  EXPECT_EQ(DutOptionGetStr(backup, &text), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_UNKNOWN);

  D_INT4 count = 0;
  D_OPTION **sorted = DutOptionSort(&count);
  ASSERT_EQ(count, DutHashGetSize(table));
  for (D_INT4 i = 1; i < count; ++i) EXPECT_LT(std::strcmp(sorted[i - 1]->name, sorted[i]->name), 0);
  DutFreeCheck(sorted, "sorted", __FILE__, __LINE__);
}

TEST(OptionCreate, FirstUseKeepsTheCallersErrorNumber) {
  DutErrNumSet(D_ERR_TIMEOUT_REACHED);
  ASSERT_NE(DutOptionLookup("editor"), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_TIMEOUT_REACHED);
}

// Each typed setter and getter refuses an option of another type.
TEST(OptionTyped, WrongTypeUnknownAndNullArguments) {
  D_OPTION *b = DutOptionCreate("w_bool", D_OPT_TYPE_BOOLEAN);
  D_OPTION *n = DutOptionCreate("w_num", D_OPT_TYPE_NUMERIC);
  D_OPTION *s = DutOptionCreate("w_str", D_OPT_TYPE_STRING);
  D_OPTION *e = DutOptionCreate("w_enum", D_OPT_TYPE_ENUM);
  D_OPTION *el = DutOptionCreate("w_enumlist", D_OPT_TYPE_ENUM_LIST);
  D_OPTION *sl = DutOptionCreate("w_strlist", D_OPT_TYPE_STRING_LIST);
  NodeChain chain({"a"});

  EXPECT_FALSE(DutOptionSetBool(n, 1));
  EXPECT_EQ(DutErrNumGet(), D_ERR_TYPE_INVALID);
  EXPECT_FALSE(DutOptionSetNum(b, 1.0));
  EXPECT_EQ(DutErrNumGet(), D_ERR_TYPE_INVALID);
  EXPECT_FALSE(DutOptionSetStr(e, "x"));
  EXPECT_EQ(DutErrNumGet(), D_ERR_TYPE_INVALID);
  EXPECT_FALSE(DutOptionSetEnum(s, "x"));
  EXPECT_EQ(DutErrNumGet(), D_ERR_TYPE_INVALID);
  EXPECT_FALSE(DutOptionSetEnumList(sl, chain.first()));
  EXPECT_EQ(DutErrNumGet(), D_ERR_TYPE_INVALID);
  EXPECT_FALSE(DutOptionSetStrList(el, chain.first()));
  EXPECT_EQ(DutErrNumGet(), D_ERR_TYPE_INVALID);
  for (D_OPTION *o : {b, n, s, e, el, sl}) EXPECT_FALSE(D_GOPT_KNOWN(o)) << o->name;

  D_INT4 flag = 0;
  D_REAL8 real = 0;
  const char *text = nullptr;
  const D_OPTION_STR_NODE *first = nullptr;
  // Unknown values.
  EXPECT_FALSE(DutOptionGetBool(b, &flag));
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_UNKNOWN);
  EXPECT_FALSE(DutOptionGetNum(n, &real));
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_UNKNOWN);
  EXPECT_FALSE(DutOptionGetEnumList(el, &first));
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_UNKNOWN);
  // Wrong types win over unknown values.
  EXPECT_FALSE(DutOptionGetBool(n, &flag));
  EXPECT_EQ(DutErrNumGet(), D_ERR_TYPE_INVALID);
  EXPECT_FALSE(DutOptionGetStr(e, &text));
  EXPECT_EQ(DutErrNumGet(), D_ERR_TYPE_INVALID);
  EXPECT_FALSE(DutOptionGetStrList(el, &first));
  EXPECT_EQ(DutErrNumGet(), D_ERR_TYPE_INVALID);
  // Null arguments.
  EXPECT_FALSE(DutOptionGetNum(nullptr, &real));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  EXPECT_FALSE(DutOptionGetNum(n, nullptr));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  EXPECT_FALSE(DutOptionSetStr(s, nullptr));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  EXPECT_FALSE(DutOptionSetStrList(sl, nullptr));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  EXPECT_FALSE(DutOptionSetBool(nullptr, 1));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  EXPECT_FALSE(DutOptionGetType(nullptr, &flag));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  EXPECT_FALSE(DutOptionGetKnown(b, nullptr));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

TEST(OptionTyped, ValuesRoundTripAndAreCopies) {
  D_OPTION *b = DutOptionCreate("v_bool", D_OPT_TYPE_BOOLEAN);
  EXPECT_FALSE(DutOptionSetBool(b, 2));
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID);
  EXPECT_FALSE(DutOptionSetBool(b, -1));
  EXPECT_FALSE(D_GOPT_KNOWN(b));
  ASSERT_TRUE(DutOptionSetBool(b, 1));
  D_INT4 flag = 0;
  ASSERT_TRUE(DutOptionGetBool(b, &flag));
  EXPECT_EQ(flag, 1);

  D_OPTION *n = DutOptionCreate("v_num", D_OPT_TYPE_NUMERIC);
  ASSERT_TRUE(DutOptionSetNum(n, -12.75));
  D_REAL8 real = 0;
  ASSERT_TRUE(DutOptionGetNum(n, &real));
  EXPECT_EQ(real, -12.75);

  D_OPTION *s = DutOptionCreate("v_str", D_OPT_TYPE_STRING);
  char mine[] = "caller text";
  ASSERT_TRUE(DutOptionSetStr(s, mine));
  mine[0] = 'X';
  const char *text = nullptr;
  ASSERT_TRUE(DutOptionGetStr(s, &text));
  EXPECT_STREQ(text, "caller text");
  EXPECT_NE(text, mine);
  // The getter hands out the stored text, not a copy.
  EXPECT_EQ(text, D_GOPT_VALUE(s));

  D_OPTION *sl = DutOptionCreate("v_strlist", D_OPT_TYPE_STRING_LIST);
  NodeChain chain({"first", "second", "third"});
  ASSERT_TRUE(DutOptionSetStrList(sl, chain.first()));
  chain.node(1).str = "changed";
  const D_OPTION_STR_NODE *first = nullptr;
  ASSERT_TRUE(DutOptionGetStrList(sl, &first));
  EXPECT_EQ(Items(first), (std::vector<std::string>{"first", "second", "third"}));
  EXPECT_NE(first, chain.first());

  D_OPTION *el = DutOptionCreate("v_enumlist", D_OPT_TYPE_ENUM_LIST);
  NodeChain words({"Any", "words"});
  ASSERT_TRUE(DutOptionSetEnumList(el, words.first()));
  ASSERT_TRUE(DutOptionGetEnumList(el, &first));
  EXPECT_EQ(Items(first), (std::vector<std::string>{"Any", "words"}));

  // Replacing a list frees the old one (checked by the sanitizer builds)
  // and makes it unknown again on request.
  NodeChain other({"only"});
  ASSERT_TRUE(DutOptionSetStrList(sl, other.first()));
  ASSERT_TRUE(DutOptionGetStrList(sl, &first));
  EXPECT_EQ(Items(first), (std::vector<std::string>{"only"}));
  ASSERT_TRUE(DutOptionSetUnknown(sl));
  EXPECT_FALSE(D_GOPT_KNOWN(sl));
}

TEST(OptionTyped, SpecialNamesReadAsEnumerated) {
  // Both are standard options (a string and a string list).
  D_OPTION *unique = DutOptionLookup("unique_subject");
  D_OPTION *subjects = DutOptionLookup("subjects");
  ASSERT_NE(unique, nullptr);
  ASSERT_NE(subjects, nullptr);
  D_OPTION *plain = DutOptionCreate("plain_string", D_OPT_TYPE_STRING);
  ASSERT_TRUE(DutOptionSetEnum(unique, "_host_42"));
  const char *text = nullptr;
  ASSERT_TRUE(DutOptionGetEnum(unique, &text));
  EXPECT_STREQ(text, "_host_42");
  EXPECT_FALSE(DutOptionSetEnum(plain, "x"));
  EXPECT_EQ(DutErrNumGet(), D_ERR_TYPE_INVALID);

  NodeChain chain({"s1", "s2"});
  ASSERT_TRUE(DutOptionSetEnumList(subjects, chain.first()));
  const D_OPTION_STR_NODE *first = nullptr;
  ASSERT_TRUE(DutOptionGetEnumList(subjects, &first));
  EXPECT_EQ(Items(first), (std::vector<std::string>{"s1", "s2"}));

  // The old names still find them.
  EXPECT_EQ(DutOptionLookup("Unique_Datagroup"), unique);
  EXPECT_EQ(DutOptionLookup("DATAGROUPS"), subjects);
  D_OPTION *project = DutOptionLookup("project");
  ASSERT_NE(project, nullptr);
  EXPECT_EQ(DutOptionLookup("Application"), project);
  EXPECT_EQ(DutOptionLookup("application_x"), nullptr);
}

TEST(OptionLegalValues, CaseDuplicatesAndRefusals) {
  D_OPTION *color = DutOptionCreate("color", D_OPT_TYPE_ENUM);
  // Without legal values any word goes.
  ASSERT_TRUE(DutOptionSetEnum(color, "Anything"));
  EXPECT_EQ(DutOptionLegValTraverse(color, [](D_WORD, D_WORD, void *) -> D_WORD { return 1; }, nullptr), 0);

  ASSERT_TRUE(DutOptionLegValAdd(color, "Red"));
  ASSERT_TRUE(DutOptionLegValAdd(color, "green"));
  EXPECT_FALSE(DutOptionLegValAdd(color, "RED"));
  EXPECT_EQ(DutErrNumGet(), D_ERR_ALREADY_EXISTS);
  EXPECT_FALSE(DutOptionLegValAdd(color, "UnKnown"));
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID);
  EXPECT_FALSE(DutOptionLegValAdd(color, nullptr));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  EXPECT_FALSE(DutOptionLegValAdd(DutOptionLookup("editor"), "x"));
  EXPECT_EQ(DutErrNumGet(), D_ERR_TYPE_INVALID);

  std::vector<std::string> seen;
  DutOptionLegValTraverse(
      color,
      [](D_WORD key, D_WORD value, void *arg) -> D_WORD {
        EXPECT_EQ(key, value);
        static_cast<std::vector<std::string> *>(arg)->emplace_back(reinterpret_cast<const char *>(key));
        return 0;
      },
      &seen);
  std::sort(seen.begin(), seen.end());
  EXPECT_EQ(seen, (std::vector<std::string>{"green", "red"}));

  ASSERT_TRUE(DutOptionSetEnum(color, "GREEN"));
  EXPECT_STREQ(static_cast<const char *>(D_GOPT_VALUE(color)), "GREEN");
  EXPECT_FALSE(DutOptionSetEnum(color, "blue"));
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID);
  EXPECT_STREQ(static_cast<const char *>(D_GOPT_VALUE(color)), "GREEN");
  // Setting by name skips the legal-value check.
  ASSERT_NE(DutOptionSet("color", "blue"), nullptr);
  EXPECT_STREQ(static_cast<const char *>(D_GOPT_VALUE(color)), "blue");
}

TEST(OptionLegalValuesDeath, TraverseNeedsAnEnumeratedOption) {
  OPT_EXPECT_ASSERTION(DutOptionLegValTraverse(DutOptionLookup("editor"),
                                               [](D_WORD, D_WORD, void *) -> D_WORD { return 0; }, nullptr),
                       "D_GOPT_TYPE\\(option\\) == D_OPT_TYPE_ENUM");
}

// ---- Commit rules ----------------------------------------------------------------

struct VerifyLog {
  int calls = 0;
  bool accept = true;
  D_INT4 own_error = 0;
  bool saw_null = false;
  D_REAL8 last = 0;
  D_INT4 error_seen = -1;
};

D_BOOL RecordingVerify(D_OPTION *, void *new_value, void *arg) {
  auto *log = static_cast<VerifyLog *>(arg);
  ++log->calls;
  log->error_seen = DutErrNumGet();
  log->saw_null = new_value == nullptr;
  if (new_value != nullptr) log->last = *static_cast<D_REAL8 *>(new_value);
  if (log->own_error != 0) DutErrNumSet(log->own_error);
  return log->accept ? D_TRUE : D_FALSE;
}

int g_change_calls = 0;
void CountChange(void *, void *, D_WORD) { ++g_change_calls; }

TEST(OptionCommit, ReadOnlyRequiredAndVerify) {
  D_OPTION *n = DutOptionCreate("c_num", D_OPT_TYPE_NUMERIC);
  ASSERT_NE(DutOptionChangeCbCreate(n, CountChange, 0), nullptr);
  ASSERT_TRUE(DutOptionSetNum(n, 1.0));
  g_change_calls = 0;

  EXPECT_FALSE(DutOptionSetReadOnly(n, 2));
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID);
  ASSERT_TRUE(DutOptionSetReadOnly(n, 1));
  EXPECT_FALSE(DutOptionSetNum(n, 2.0));
  EXPECT_EQ(DutErrNumGet(), D_ERR_READ_ONLY);
  EXPECT_FALSE(DutOptionSetUnknown(n));
  EXPECT_EQ(DutErrNumGet(), D_ERR_READ_ONLY);
  EXPECT_EQ(*static_cast<D_REAL8 *>(D_GOPT_VALUE(n)), 1.0);
  ASSERT_TRUE(DutOptionSetReadOnly(n, 0));

  ASSERT_TRUE(DutOptionSetRequired(n, 1));
  EXPECT_FALSE(DutOptionSetUnknown(n));
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_REQUIRED);
  EXPECT_TRUE(D_GOPT_KNOWN(n));
  ASSERT_TRUE(DutOptionSetRequired(n, 0));

  VerifyLog log;
  ASSERT_TRUE(DutOptionSetVerifyFunc(n, RecordingVerify, &log));
  D_OPTION_VERIFY_FUNC func = nullptr;
  ASSERT_TRUE(DutOptionGetVerifyFunc(n, &func));
  EXPECT_EQ(func, &RecordingVerify);

  log.accept = false;
  DutErrNumSet(D_ERR_TIMEOUT_REACHED);
  EXPECT_FALSE(DutOptionSetNum(n, 3.0));
  EXPECT_EQ(log.error_seen, 0);  // cleared before the call
  EXPECT_EQ(log.last, 3.0);
  EXPECT_EQ(DutErrNumGet(), D_ERR_VERIFY_FAILED);
  log.own_error = D_ERR_VAL_INVALID;
  EXPECT_FALSE(DutOptionSetNum(n, 4.0));
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID);
  EXPECT_EQ(*static_cast<D_REAL8 *>(D_GOPT_VALUE(n)), 1.0);
  EXPECT_EQ(g_change_calls, 0);

  log.accept = true;
  log.own_error = 0;
  ASSERT_TRUE(DutOptionSetUnknown(n));
  EXPECT_TRUE(log.saw_null);
  EXPECT_EQ(g_change_calls, 1);
  ASSERT_TRUE(DutOptionSetNum(n, 5.0));
  EXPECT_EQ(g_change_calls, 2);
  EXPECT_EQ(log.calls, 4);

  // A null function removes verification.
  ASSERT_TRUE(DutOptionSetVerifyFunc(n, nullptr, nullptr));
  ASSERT_TRUE(DutOptionSetNum(n, 6.0));
  EXPECT_EQ(log.calls, 4);
  EXPECT_FALSE(DutOptionSetRequired(nullptr, 1));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

// ---- Change callbacks ---------------------------------------------------------------

struct Seen {
  std::vector<std::string> order;
  std::vector<D_REAL8> values_in_option;
  std::vector<const void *> data_values;
  std::vector<D_CB *> heads;
};
Seen g_seen;

void Observe(void *object, void *data, D_WORD arg) {
  auto *option = static_cast<D_OPTION *>(object);
  auto *change = static_cast<D_OPTION_CHANGE_DATA *>(data);
  g_seen.order.emplace_back(reinterpret_cast<const char *>(arg));
  g_seen.heads.push_back(change->cb);
  g_seen.data_values.push_back(change->value);
  D_REAL8 now = -1;
  if (D_GOPT_KNOWN(option)) DutOptionGetNum(option, &now);
  g_seen.values_in_option.push_back(now);
}

TEST(OptionChangeCallbacks, OwnAndGlobalMergedByPriorityAfterTheStore) {
  D_OPTION *n = DutOptionCreate("cb_num", D_OPT_TYPE_NUMERIC);
  D_OPTION *other = DutOptionCreate("cb_other", D_OPT_TYPE_NUMERIC);
  static const char kOwn[] = "own";
  static const char kGlobal[] = "global";
  D_CB *own = DutOptionChangeCbCreate(n, Observe, reinterpret_cast<D_WORD>(kOwn));
  D_CB *global = DutOptionChangeCbCreate(nullptr, Observe, reinterpret_cast<D_WORD>(kGlobal));
  ASSERT_NE(own, nullptr);
  ASSERT_NE(global, nullptr);
  EXPECT_EQ(DutOptionChangeCbLookup(n, Observe, reinterpret_cast<D_WORD>(kOwn)), own);
  EXPECT_EQ(DutOptionChangeCbLookup(nullptr, Observe, reinterpret_cast<D_WORD>(kGlobal)), global);
  EXPECT_EQ(DutOptionChangeCbCreate(n, nullptr, 0), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  ASSERT_TRUE(DutCbSetPriority(global, 5));

  g_seen = {};
  ASSERT_TRUE(DutOptionSetNum(n, 7.5));
  ASSERT_EQ(g_seen.order, (std::vector<std::string>{"global", "own"}));
  EXPECT_EQ(g_seen.heads[0], global);
  EXPECT_EQ(g_seen.heads[1], own);
  EXPECT_EQ(g_seen.values_in_option, (std::vector<D_REAL8>{7.5, 7.5}));
  EXPECT_EQ(g_seen.data_values[0], D_GOPT_VALUE(n));

  ASSERT_TRUE(DutCbSetPriority(own, 9));
  g_seen = {};
  ASSERT_TRUE(DutOptionSetUnknown(n));
  EXPECT_EQ(g_seen.order, (std::vector<std::string>{"own", "global"}));
  EXPECT_EQ(g_seen.data_values[0], nullptr);

  // The global callback runs for every option, the own one only for n.
  g_seen = {};
  ASSERT_TRUE(DutOptionSetNum(other, 1.0));
  EXPECT_EQ(g_seen.order, (std::vector<std::string>{"global"}));

  // A refused change runs nothing.
  ASSERT_TRUE(DutOptionSetReadOnly(n, 1));
  g_seen = {};
  EXPECT_FALSE(DutOptionSetNum(n, 8.0));
  EXPECT_TRUE(g_seen.order.empty());
  DutCbDestroy(global);
}

TEST(OptionChangeCallbacks, CopyCallbacksMirrorIntoVariables) {
  D_OPTION *n = DutOptionCreate("mirror_num", D_OPT_TYPE_NUMERIC);
  D_OPTION *b = DutOptionCreate("mirror_bool", D_OPT_TYPE_BOOLEAN);
  D_INT4 as_int = 99;
  D_INT4 as_int4 = 99;
  D_INT4 as_bool = 99;
  ASSERT_NE(DutOptionChangeCbCreate(n, DutCbOptionCopyInt, reinterpret_cast<D_WORD>(&as_int)), nullptr);
  ASSERT_NE(DutOptionChangeCbCreate(n, DutCbOptionCopyInt4, reinterpret_cast<D_WORD>(&as_int4)), nullptr);
  ASSERT_NE(DutOptionChangeCbCreate(b, DutCbOptionCopyBool, reinterpret_cast<D_WORD>(&as_bool)), nullptr);

  ASSERT_TRUE(DutOptionSetNum(n, 3.9));
  EXPECT_EQ(as_int, 3);
  EXPECT_EQ(as_int4, 3);
  ASSERT_TRUE(DutOptionSetNum(n, -2.7));
  EXPECT_EQ(as_int, -2);
  ASSERT_TRUE(DutOptionSetNum(n, 1e12));
  EXPECT_EQ(as_int, INT_MAX);
  ASSERT_TRUE(DutOptionSetNum(n, -1e12));
  EXPECT_EQ(as_int4, INT_MIN);

  ASSERT_TRUE(DutOptionSetBool(b, 1));
  EXPECT_EQ(as_bool, 1);
  ASSERT_TRUE(DutOptionSetBool(b, 0));
  EXPECT_EQ(as_bool, 0);
}

TEST(OptionChangeCallbacksDeath, CopyCallbackRefusesAnUnknownValue) {
  static D_INT4 target = 0;
  D_OPTION *b = DutOptionCreate("mirror_gone", D_OPT_TYPE_BOOLEAN);
  ASSERT_NE(DutOptionChangeCbCreate(b, DutCbOptionCopyBool, reinterpret_cast<D_WORD>(&target)), nullptr);
  OPT_EXPECT_ASSERTION(DutOptionSetUnknown(b), "data->value != NULL");
}

// ---- By name ---------------------------------------------------------------------------

TEST(OptionByName, SetUnsetAndNumericHelpers) {
  OutputCapture capture;
  D_OPTION *b = DutOptionCreate("n_bool", D_OPT_TYPE_BOOLEAN);
  D_OPTION *n = DutOptionCreate("n_num", D_OPT_TYPE_NUMERIC);
  D_OPTION *nl = DutOptionCreate("n_numlist", D_OPT_TYPE_NUMERIC_LIST);
  ASSERT_NE(nl, nullptr);

  D_INT4 five = 5;  // no 0/1 check by name
  void *stored = DutOptionSet("N_BOOL", &five);
  ASSERT_NE(stored, nullptr);
  EXPECT_EQ(stored, D_GOPT_VALUE(b));
  EXPECT_NE(stored, static_cast<void *>(&five));
  EXPECT_EQ(*static_cast<D_INT4 *>(stored), 5);

  EXPECT_EQ(DutOptionSet("nothing_here", &five), nullptr);
  EXPECT_EQ(capture.Take(), "DutOptionSet: unknown option <nothing_here>\n");

  D_REAL8 one = 1.0;
  EXPECT_EQ(DutOptionSet("n_numlist", &one), nullptr);
  EXPECT_EQ(capture.Take(),
            "WARNING: utOptionSet: cannot set option <n_numlist>.\n"
            "WARNING: utOptionSet: setting type 5 not implemented.\n");
  EXPECT_FALSE(D_GOPT_KNOWN(nl));

  EXPECT_EQ(DutOptionGetNumValue("n_num"), 0.0);  // unknown value
  EXPECT_EQ(capture.Take(), "");
  ASSERT_NE(DutOptionSetNumValue("n_num", 2.25), nullptr);
  EXPECT_EQ(DutOptionGetNumValue("N_Num"), 2.25);
  EXPECT_EQ(*static_cast<D_REAL8 *>(DutOptionGetValue("n_num")), 2.25);
  EXPECT_EQ(D_GOPT_VALUE(n), DutOptionGetValue("n_num"));

  EXPECT_EQ(DutOptionGetNumValue("missing"), 0.0);
  EXPECT_EQ(capture.Take(), "DutOptionSetNumValue: Unknown option: missing\n");
  EXPECT_EQ(DutOptionGetNumValue("n_bool"), 0.0);
  EXPECT_EQ(capture.Take(), "DutOptionSetNumValue: option n_bool not numeric\n");
  EXPECT_EQ(DutOptionSetNumValue("n_bool", 1.0), nullptr);
  EXPECT_EQ(capture.Take(), "DutOptionSetNumValue: option n_bool not numeric\n");

  EXPECT_EQ(DutOptionGetValue("missing"), nullptr);
  EXPECT_EQ(capture.Take(), "WARNING: DutOptionGetValue: unknown option <missing>.\n");

  EXPECT_FALSE(DutOptionUnset("missing"));
  EXPECT_EQ(capture.Take(), "Cannot unset <missing>: no such option.\n");
  EXPECT_TRUE(DutOptionUnset("n_num"));
  EXPECT_EQ(DutOptionGetValue("n_num"), nullptr);
}

TEST(OptionByNameDeath, NullValueIsAnAssertion) {
  OPT_EXPECT_ASSERTION(DutOptionSet("editor", nullptr), "option_value != NULL");
  D_INT4 count = 0;
  OPT_EXPECT_ASSERTION(DutOptionSort(nullptr), "num_options_return != NULL");
  OPT_EXPECT_ASSERTION(DutOptionDump(nullptr, nullptr), "output_func");
  (void)count;
}

// ---- Verify functions of the library ------------------------------------------------------

TEST(OptionVerifyFunctions, NonNegativeAndTwoByteInteger) {
  OutputCapture capture;
  D_OPTION *n = DutOptionCreate("vf_nonneg", D_OPT_TYPE_NUMERIC);
  ASSERT_TRUE(DutOptionSetVerifyFunc(n, DutOptionVerifyNonNeg, nullptr));
  ASSERT_TRUE(DutOptionSetNum(n, 0.0));
  EXPECT_FALSE(DutOptionSetNum(n, -0.5));
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_TOO_SMALL);
  EXPECT_EQ(capture.Take(), "The option <vf_nonneg> must be nonnegative.\n");
  EXPECT_EQ(*static_cast<D_REAL8 *>(D_GOPT_VALUE(n)), 0.0);

  D_OPTION *i2 = DutOptionCreate("vf_int2", D_OPT_TYPE_NUMERIC);
  ASSERT_TRUE(DutOptionSetVerifyFunc(i2, DutOptionVerifyInt2, nullptr));
  EXPECT_TRUE(DutOptionSetNum(i2, 32767));
  EXPECT_TRUE(DutOptionSetNum(i2, -32768));
  EXPECT_EQ(capture.Take(), "");
  for (D_REAL8 bad : {32768.0, -32769.0, 1.5, 1e300}) {
    EXPECT_FALSE(DutOptionSetNum(i2, bad)) << bad;
    EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID);
    EXPECT_EQ(capture.Take(), "The option <vf_int2> must be a valid two-byte integer.\n");
  }
  EXPECT_EQ(*static_cast<D_REAL8 *>(D_GOPT_VALUE(i2)), -32768.0);
}

TEST(OptionVerifyFunctions, RealNumberFormatCheck) {
  OutputCapture capture;
  D_OPTION *f = DutOptionLookup("real_number_format");
  ASSERT_NE(f, nullptr);
  for (const char *good : {"%5.2lf", "%-+ #012.4E", "%G", "%.3e", "%lg"}) {
    EXPECT_TRUE(DutOptionSetStr(f, good)) << good;
    EXPECT_EQ(capture.Take(), "") << good;
  }
  EXPECT_TRUE(DutOptionSetStr(f, "override:%d whatever"));
  EXPECT_EQ(capture.Take(), "Accepting override value for real_number_format of <%d whatever>\n");

  struct Bad {
    const char *value;
    const char *message;
  };
  for (const Bad &bad : {Bad{"%5.2d", "Illegal character 'd' in option <real_number_format>.\n"},
                         Bad{"%gx", "Bad character 'x' in option <real_number_format> after end of valid format.\n"},
                         Bad{"g", "The option <real_number_format> must start with '%'.\n"},
                         Bad{"%5.2.1f", "Illegal character '.' in option <real_number_format>.\n"},
                         Bad{"%llf", "Illegal character 'l' in option <real_number_format>.\n"}}) {
    EXPECT_FALSE(DutOptionSetStr(f, bad.value)) << bad.value;
    EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID);
    EXPECT_EQ(capture.Take(), bad.message);
  }
  EXPECT_STREQ(static_cast<const char *>(D_GOPT_VALUE(f)), "override:%d whatever");
}

TEST(OptionTypes, WordsAndBadType) {
  OutputCapture capture;
  const char *expected[] = {"boolean", "enumerated", "numeric", "string",
                            "enumerated list", "numeric list", "string list"};
  for (D_INT4 t = 0; t < 7; ++t) EXPECT_STREQ(DutOptionTypeToStr(t), expected[t]);
  EXPECT_EQ(capture.Take(), "");
  EXPECT_STREQ(DutOptionTypeToStr(7), "bad type");
  EXPECT_EQ(capture.Take(), "WARNING: DutOptionTypeToStr: bad option type 7.\n");
  EXPECT_STREQ(DutOptionTypeToStr(-1), "bad type");
}

TEST(OptionThreads, ConcurrentCreationAndLookup) {
  ASSERT_TRUE(DutInitThreads());
  constexpr int kThreads = 4;
  constexpr int kEach = 50;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < kEach; ++i) {
        std::string name = "thr_" + std::to_string(t) + "_" + std::to_string(i);
        D_OPTION *o = DutOptionCreate(name.c_str(), D_OPT_TYPE_NUMERIC);
        EXPECT_NE(o, nullptr);
        EXPECT_EQ(DutOptionLookup(name.c_str()), o);
        EXPECT_NE(DutOptionLookup("editor"), nullptr);
      }
    });
  }
  for (auto &th : threads) th.join();
  D_INT4 count = 0;
  D_OPTION **sorted = DutOptionSort(&count);
  int ours = 0;
  for (D_INT4 i = 0; i < count; ++i)
    if (std::strncmp(sorted[i]->name, "thr_", 4) == 0) ++ours;
  EXPECT_EQ(ours, kThreads * kEach);
  DutFreeCheck(sorted, "sorted", __FILE__, __LINE__);
}

}  // namespace

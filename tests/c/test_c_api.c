/*
 * The C API as a C11 host uses it: the public headers compile as C, the
 * accessor and allocation macros work on C lvalues, and the basic families
 * behave the same when called from C.
 */
#include <setjmp.h>
#include <stdio.h>
#include <string.h>

#include "vqutil/util.h"

static int passed;
static int failed;

#define CHECK(cond)                                                   \
  do {                                                                \
    if (cond) {                                                       \
      ++passed;                                                       \
    } else {                                                          \
      ++failed;                                                       \
      fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
    }                                                                 \
  } while (0)

/* Output capture: the library's output function has vprintf's shape. */
static char captured[4096];
static int capture_output(const char *format, va_list args) {
  size_t used = strlen(captured);
  return vsnprintf(captured + used, sizeof captured - used, format, args);
}

static void test_errors(void) {
  DutErrNumSet(D_ERR_DOESNT_EXIST);
  CHECK(DutErrNumGet() == 8 && *DutErrNumGetPtr() == 8);
  CHECK(strcmp(DutErrStrGet(), "doesn't exist") == 0);
  CHECK(strcmp(DutErrNumToStr(23), "unknown error 23") == 0);
  CHECK(DutErrNumSave(NULL) == D_FALSE && DutErrNumGet() == D_ERR_NULL_PTR);
}

static void test_output(void) {
  D_OUTPUT_FUNC previous = DutGetOutputFunc();
  captured[0] = '\0';
  DutSetOutputFunc(capture_output);
  DutErrNumSet(D_ERR_EMPTY);
  DutOut("%s=%d\n", "answer", 42);
  DutWarning("low on %s\n", "disk");
  /* No message file is open: the library's text and the parameters. */
  CHECK(DutErrParamSet(2, "two") == D_TRUE);
  CHECK(DutErrReportParams(D_ERR_EOF, "one", (char *)NULL) == D_FALSE);
  DutSetOutputFunc(previous);
  CHECK(strstr(captured, "answer=42\n") != NULL);
  CHECK(strstr(captured, "WARNING: low on disk\n") != NULL);
  CHECK(strstr(captured, "end of file [one, two]\n") != NULL);
  /* Printing never changes the caller's error number. */
  CHECK(DutErrNumGet() == D_ERR_EMPTY);
}

struct item {
  struct item *next; /* the link word comes first */
  int value;
};

static int comes_before(void *a, void *b) {
  return ((struct item *)a)->value < ((struct item *)b)->value;
}

static int int_before(void *a, void *b) { return *(int *)a < *(int *)b; }

static void test_containers(void) {
  struct item a = {NULL, 1}, b = {NULL, 2}, c = {NULL, 3};
  struct item *front = NULL, *rear = NULL;
  D_PQ_HDR pq = {NULL, NULL};
  D_HASH_TABLE *table;
  int x = 1, y = 2;

  DutQueueInsert(&front, &rear, &c, comes_before);
  DutQueueInsert(&front, &rear, &a, comes_before);
  DutQueueInsert(&front, &rear, &b, comes_before);
  CHECK(front == &a && rear == &c);
  CHECK(DutListLength(front) == 3);
  CHECK(DutListPos(front, &b) == 1);
  CHECK(DutQueuePop(&front, &rear) == &a);

  CHECK(DutPqInsert(&pq, &y, int_before) == 1);
  CHECK(DutPqInsert(&pq, &x, int_before) == 1);
  CHECK(DutPqCount(&pq) == 2);
  CHECK(DutPqPop(&pq) == &x);
  DutPqClose(&pq);
  CHECK(D_PQ_FRONT(&pq) == NULL && D_PQ_REAR(&pq) == NULL);

  table = DutHashCreateStr(4);
  CHECK(table->size == 8 && table->max_entries == 6);
  DutHashInsert(table, (D_WORD) "alpha", 1);
  DutHashInsert(table, (D_WORD) "beta", 2);
  CHECK(D_GHT_NUM_ENTRIES(table) == 2);
  CHECK(DutHashLookup(table, (D_WORD) "beta") == 2);
  CHECK(DutHashLookup(table, (D_WORD) "gamma") == 0);
  CHECK(DutErrNumGet() == D_ERR_DOESNT_EXIST);
  DutHashDestroy(table, NULL, NULL);
  /* Lists of strings as C has them, char **, go in without a cast. */
  CHECK(DutStrListDup((char *[]){"a"}, -1) == NULL && DutStrListEquali((char *[]){"a"}, 1, (char *[]){"A"}, 1));
}

static void test_memory(void) {
  char *text;
  D_MALLOC(text, 16);
  CHECK(text != NULL);
  strcpy(text, "vqutil");
  D_REALLOC(text, 64);
  CHECK(strcmp(text, "vqutil") == 0);
  D_FREE(text);
}

static D_TSD_KEY key = D_INVALID_TSD_KEY;
static D_WORD thread_body(D_WORD arg) {
  void *value = NULL;
  DutErrNumSet((D_INT4)arg);
  DutTsdSetValue(key, &key);
  if (!DutTsdGetValue(key, &value) || value != &key) {
    return -1;
  }
  return DutThreadEqual(DutThreadSelf(), D_INVALID_THREAD) ? -2 : DutErrNumGet();
}

static void test_threads(void) {
  D_THREAD thread;
  D_WORD code = 0;
  D_MUTEX mutex;

  /* Starting the thread layer gives every thread a fresh error record, so
   * start it before setting the number this test follows. */
  CHECK(DutInitThreads() == D_TRUE);
  CHECK(DutTsdKeyCreate(&key, NULL) == D_TRUE);
  DutErrNumSet(D_ERR_EOF);
  thread = DutThreadCreate(thread_body, (D_WORD)D_ERR_TIMEOUT_REACHED);
  CHECK(thread != D_INVALID_THREAD);
  CHECK(DutThreadWait(thread, &code) == D_TRUE);
  CHECK(code == D_ERR_TIMEOUT_REACHED);
  /* The other thread's error number did not leak into this one. */
  CHECK(DutErrNumGet() == D_ERR_EOF);
  CHECK(DutThreadSelf() == D_INVALID_THREAD);
  CHECK(DutTsdKeyDestroy(key) == D_TRUE);

  mutex = DutMutexCreate(1);
  CHECK(DutMutexLock(mutex, 0.0) == D_TRUE && DutMutexUnlock(mutex) == D_TRUE);
  CHECK(DutMutexDestroy(mutex) == D_TRUE);
}

/* The system's record, filled; a null one refused. */
static void test_system_info(void) {
  D_SYSTEM_INFO info;
  CHECK(!DutGetSystemInfo(NULL) && DutErrNumGet() == D_ERR_NULL_PTR && DutGetSystemInfo(&info) && info.nodename[0]);
}

/* The typed accepts as a C host calls them: one argument, the value as the
 * result; a refusal long-jumps through the quiet error function. */
static jmp_buf lex_jump;

static int accept_refused(const char *text, int which) {
  D_LEX *volatile lexer = NULL;
  if (setjmp(lex_jump) == D_LEX_JUMP_VALUE) {
    return 1; /* the error function destroyed the lexer and jumped here */
  }
  lexer = DutLexCreate(D_LEX_ATT_STRING, text, D_LEX_ATT_ERROR_FUNC, DutLexQuietLongjmpErrorFunc,
                       D_LEX_ATT_ERROR_ARG, (void *)&lex_jump, 0);
  switch (which) {
    case 0: (void)DutLexAcceptSignedReal(lexer); break;
    case 1: (void)DutLexAcceptSignedInt(lexer); break;
    case 2: (void)DutLexAcceptUnsignedInt(lexer); break;
    default: (void)DutLexAcceptBool(lexer); break;
  }
  DutLexDestroy(lexer);
  return 0;
}

static void test_lexer(void) {
  D_LEX *lexer = DutLexCreate(D_LEX_ATT_STRING, "-2.5 +7 -4.0 4294967295 TRUE false", 0);
  D_REAL8 real = DutLexAcceptSignedReal(lexer);
  D_INT4 whole = DutLexAcceptSignedInt(lexer);
  D_INT4 negative = DutLexAcceptSignedInt(lexer);
  D_UINT4 big = DutLexAcceptUnsignedInt(lexer);
  D_BOOL yes = DutLexAcceptBool(lexer);
  D_BOOL no = DutLexAcceptBool(lexer);
  CHECK(real == -2.5);
  CHECK(whole == 7 && negative == -4);
  CHECK(big == 4294967295u);
  CHECK(yes == 1 && no == 0);
  CHECK(DutLexGetValue(lexer) == 0.0); /* the last value stays in the lexer */
  CHECK(DutLexGetToken(lexer) == D_TOK_EOF);
  DutLexDestroy(lexer);

  CHECK(accept_refused("x", 0) == 1);
  CHECK(accept_refused("1.5", 1) == 1); /* not a whole number */
  CHECK(accept_refused("-3", 2) == 1);  /* no sign before an unsigned number */
  CHECK(accept_refused("yes", 3) == 1);
  CHECK(accept_refused("true", 3) == 0);
}

/* A ring as C sees it: the records' fields through the accessor macros. */
static void test_ringbuf(void) {
  D_TIME_VALUE now = {0, 0}, incr = {1, 0}, t = {3, 250000};
  D_RING_BUF *ring;
  D_RING_HDR *hdr;
  D_RING_ENTRY *e;
  double v = 2.5;
  DutSetCurrentTime(0.0);
  ring = DutRingCreate(D_RING_TYPE_DOUBLE, "c");
  hdr = DutRingAddFixedBuffer(ring, 1, &incr);
  CHECK(hdr != NULL && D_GRH_SIZE(hdr) == 2 && D_GRH_RING(hdr) == ring);
  e = DutRingArchiveValue(ring, &t, &v, D_RING_STATUS_KNOWN, 9);
  CHECK(e == D_GRH_CURRENT(hdr) && D_GRBE_SEC(e) == 3 && D_GRBE_USEC(e) == 250000 && D_GRBE_FLAG(e) == 9);
  CHECK(*(double *)DutRingValuePtr(e, D_GRB_TYPE(ring)) == 2.5);
  CHECK(DutRingFindTime(hdr, &t) == e && DutRingFindTime(hdr, &now) == NULL);
  CHECK(DutRingDestroy(ring) == D_TRUE && D_GRB_NAME(ring) == NULL);
  DutDqClose(&D_GRB_BUFFERS(ring));
  DutFreeCheck(ring, "ring", __FILE__, __LINE__);
}

int main(void) {
  test_errors();
  test_output();
  test_containers();
  test_memory();
  test_lexer();
  test_threads();
  test_system_info();
  test_ringbuf();
  printf("c_api: %d passed, %d failed\n", passed, failed);
  return failed == 0 ? 0 : 1;
}

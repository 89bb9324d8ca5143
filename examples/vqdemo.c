/*
 * vqdemo: a small host program of the vqutil library.
 *
 * It does what every process of the family does at start: prints through
 * the library's output function, starts worker threads that hand results
 * back through a pointer queue guarded by a library mutex and a condition,
 * files names in a hash table, and shows how a failed call reports its
 * error number and text.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "vqutil/util.h"

#define WORKERS 3
#define ITEMS_PER_WORKER 4

static D_PQ_HDR results;
static D_MUTEX results_lock;
static D_COND results_ready;

/* A worker squares its numbers and queues them for the main thread. */
static D_WORD worker(D_WORD arg) {
  D_WORD base = arg * 10;
  for (D_WORD i = 0; i < ITEMS_PER_WORKER; ++i) {
    D_WORD *item;
    D_MALLOC(item, sizeof *item);
    *item = (base + i) * (base + i);
    DutMutexLock(results_lock, D_WAIT_FOREVER);
    DutPqAdd(&results, item);
    DutCondWakeAll(results_ready);
    DutMutexUnlock(results_lock);
  }
  return arg;
}

static void show_failure(const char *what) {
  DutOut("%s failed: error %ld (%s)\n", what, (long)DutErrNumGet(), DutErrStrGet());
  /* For OS, C runtime and socket errors DutPerror adds the system's text. */
  DutPerror(what);
}

int main(void) {
  D_THREAD threads[WORKERS];
  D_HASH_TABLE *names;
  int received = 0;
  D_WORD total = 0;

  DutOut("vqdemo: vqutil host example\n");

  results_lock = DutMutexCreate(0);
  results_ready = DutCondCreate();
  if (results_lock == D_INVALID_MUTEX || results_ready == D_INVALID_COND) {
    show_failure("creating the result lock");
    return 1;
  }

  for (D_WORD i = 0; i < WORKERS; ++i) {
    threads[i] = DutThreadCreate(worker, i + 1);
    if (threads[i] == D_INVALID_THREAD) {
      show_failure("DutThreadCreate");
      return 1;
    }
  }

  /* Collect every result; a wait that times out has given the mutex up. */
  DutMutexLock(results_lock, D_WAIT_FOREVER);
  while (received < WORKERS * ITEMS_PER_WORKER) {
    D_WORD *item = (D_WORD *)DutPqPop(&results);
    if (item == NULL) {
      if (!DutCondWait(results_ready, results_lock, 1.0)) {
        DutMutexLock(results_lock, D_WAIT_FOREVER);
      }
      continue;
    }
    total += *item;
    ++received;
    D_FREE(item);
  }
  DutMutexUnlock(results_lock);

  for (int i = 0; i < WORKERS; ++i) {
    D_WORD code = 0;
    DutThreadWait(threads[i], &code);
    DutOut("worker %ld finished\n", (long)code);
  }
  DutOut("received %d results, sum of squares %ld\n", received, (long)total);

  names = DutHashCreateStri(8);
  DutHashInsert(names, (D_WORD) "Server", (D_WORD) "listens for clients");
  DutHashInsert(names, (D_WORD) "Monitor", (D_WORD) "watches the servers");
  DutOut("lookup of \"SERVER\" ignoring case: %s\n",
         (const char *)DutHashLookup(names, (D_WORD) "SERVER"));

  /* Failed calls leave their reason in the thread's error number. */
  if (DutHashLookup(names, (D_WORD) "archiver") == 0) {
    show_failure("DutHashLookup(\"archiver\")");
  }
  if (DutMutexCreate(2) == D_INVALID_MUTEX) {
    show_failure("DutMutexCreate(2)");
  }
  if (DutMutexAttachNamedNp("vqdemo-no-such-mutex") == D_INVALID_MUTEX) {
    show_failure("DutMutexAttachNamedNp");
  }

  DutHashDestroy(names, NULL, NULL);
  DutCondDestroy(results_ready);
  DutMutexDestroy(results_lock);
  DutOut("vqdemo: done\n");
  return 0;
}

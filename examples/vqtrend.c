/*
 * vqtrend: the history a monitoring process keeps of its measured values.
 *
 * Each variable is a named type of the type registry, whose user argument
 * holds the variable's ring. The ring keeps the value at three resolutions
 * at once: every change for the last few minutes, the latest value of each
 * second for an hour, and of each minute for a day. The program feeds an
 * hour of samples, four a second, with the application's current time
 * following the data, then reads the history back the way a display or a
 * report does: the value at a past time, the extremes of the last minute,
 * a sampling every ten seconds and the newest changes.
 *
 * It exits 1 if a read does not give what the feed implies.
 */
#include <stdio.h>

#include "vqutil/util.h"

#define SAMPLES_PER_SECOND 4
#define FEED_SECONDS 3600
#define FIRST_SECOND 1700000000L /* data time of the first sample */

struct variable {
  const char *name;
  double base;
  double swing;
};

static const struct variable variables[] = {
    {"tank1.level", 40.0, 8.0},
    {"tank1.pressure", 2.0, 0.5},
};
#define NVARIABLES (sizeof variables / sizeof variables[0])

/* The data time of a sample. */
static D_TIME_VALUE time_of(long step) {
  D_TIME_VALUE t;
  t.seconds = (D_INT4)(FIRST_SECOND + step / SAMPLES_PER_SECOND);
  t.microseconds = (D_INT4)(step % SAMPLES_PER_SECOND * (1000000 / SAMPLES_PER_SECOND));
  return t;
}

/* A triangle wave of period four minutes, in steps of a quarter second:
 * every sample differs from the one before, so every one is a change. */
static double sample(const struct variable *v, long step) {
  long phase = step % 960;
  double rise = phase < 480 ? phase / 480.0 : (960 - phase) / 480.0;
  return v->base - v->swing + 2.0 * v->swing * rise;
}

static double value_of(D_RING_ENTRY *entry) {
  return *(const double *)DutRingValuePtr(entry, D_RING_TYPE_DOUBLE);
}

static D_WORD print_step(D_RING_CONTEXT *context, D_RING_ENTRY *entry, const D_TIME_VALUE *time, void *arg) {
  int *steps = arg;
  (void)context;
  ++*steps;
  if (entry == NULL) {
    DutOut("    %ld.%06ld  no value\n", (long)time->seconds, (long)time->microseconds);
  } else {
    DutOut("    %ld.%06ld  %.3f\n", (long)time->seconds, (long)time->microseconds, value_of(entry));
  }
  return 0;
}

static D_RING_BUF *make_ring(const char *name) {
  const D_TIME_VALUE every_change = {0, 0}, second = {1, 0}, minute = {60, 0};
  const D_TIME_VALUE hour = {3600, 0}, day = {86400, 0};
  D_RING_BUF *ring = DutRingCreate(D_RING_TYPE_DOUBLE, name);
  /* Every change, in a fixed buffer: about eight minutes at this rate. */
  if (ring == NULL || DutRingAddFixedBuffer(ring, 2000, &every_change) == NULL ||
      DutRingAddBuffer(ring, &hour, &second, 600) == NULL || DutRingAddBuffer(ring, &day, &minute, 60) == NULL) {
    return NULL;
  }
  return ring;
}

/* The ring record outlives DutRingDestroy; a host done with it frees the
 * rest itself. */
static void release_ring(D_RING_BUF *ring) {
  DutRingDestroy(ring);
  if (D_GRB_OVERWRITE_CB_LIST(ring) != NULL) DutCbListDestroy(D_GRB_OVERWRITE_CB_LIST(ring));
  DutDqClose(&D_GRB_BUFFERS(ring));
  DutFreeCheck(ring, "ring", __FILE__, __LINE__);
}

/* The ring of a variable, looked up as a display would: by name, in any
 * case. */
static D_RING_BUF *ring_of(const char *name) {
  D_TYPE *type = DutTypeLookup(name);
  D_WORD ring = 0;
  if (type == NULL || !DutTypeGetUserArg(type, &ring)) return NULL;
  return (D_RING_BUF *)ring;
}

static int report(const char *lookup_name, const struct variable *v, long last_step) {
  static const D_INT4 increments[] = {0, 1, 60};
  D_RING_BUF *ring = ring_of(lookup_name);
  D_RING_CONTEXT context;
  D_TIME_VALUE past, from, to, ten = {10, 0}, minute = {60, 0}, span;
  double max = 0.0, min = 0.0;
  int steps = 0, failed = 0;
  size_t i;

  if (ring == NULL) return 1;
  DutOut("%s\n", D_GRB_NAME(ring));

  /* What each resolution still holds; the growable buffers have grown to
   * keep their minimum span. */
  for (i = 0; i < sizeof increments / sizeof increments[0]; ++i) {
    const D_TIME_VALUE incr = {increments[i], 0};
    D_RING_HDR *buffer = DutRingGetIncrement(ring, &incr);
    if (buffer == NULL || !DutRingBufferSpan(buffer, &span)) return 1;
    DutOut("  increment %ld s: room for %ld entries, covers %ld s\n", (long)increments[i], (long)D_GRH_SIZE(buffer),
           (long)span.seconds);
  }

  /* Half an hour ago only the per-second buffer reaches back. Each of its
   * entries holds the value at a whole second, the latest of the second
   * that ends there: at .9 the value in force is that of .0. */
  past = time_of(last_step - 1800 * SAMPLES_PER_SECOND);
  past.microseconds = 900000;
  {
    D_RING_ENTRY *entry = DutRingFindTimeEntry(ring, &past);
    long step = (long)(past.seconds - FIRST_SECOND) * SAMPLES_PER_SECOND;
    DutOut("  at %ld.%06ld: %.3f\n", (long)past.seconds, (long)past.microseconds, entry ? value_of(entry) : -1.0);
    failed |= entry == NULL || value_of(entry) != sample(v, step);
  }

  /* The extremes of the last minute: the every-change buffer still holds
   * each of its samples. */
  to = time_of(last_step);
  from = time_of(last_step - 60 * SAMPLES_PER_SECOND);
  if (!DutRingGetMaxMin(ring, &from, &to, &max, &min)) return 1;
  DutOut("  last minute: max %.3f, min %.3f\n", max, min);
  {
    double fed_max = sample(v, last_step), fed_min = fed_max;
    long step;
    for (step = last_step - 60 * SAMPLES_PER_SECOND; step < last_step; ++step) {
      fed_max = sample(v, step) > fed_max ? sample(v, step) : fed_max;
      fed_min = sample(v, step) < fed_min ? sample(v, step) : fed_min;
    }
    failed |= max != fed_max || min != fed_min;
  }

  /* A sampling every ten seconds over that minute: seven steps. */
  DutOut("  every ten seconds:\n");
  if (!DutRingTravInit(&context, ring, &from, &ten, &minute)) return 1;
  DutRingTraverse(&context, print_step, &steps);
  failed |= steps != 7;

  /* The three newest changes, oldest first. */
  DutOut("  newest changes:\n");
  steps = 0;
  if (!DutRingZeroTravInit(&context, ring, 0, 3)) return 1;
  DutRingTraverse(&context, print_step, &steps);
  failed |= steps != 3;
  return failed;
}

int main(void) {
  D_RING_BUF *rings[NVARIABLES];
  long step, last_step = (long)FEED_SECONDS * SAMPLES_PER_SECOND - 1;
  size_t i;
  int failed = 0;

  if (!DutTypeInitialize()) return 1;
  for (i = 0; i < NVARIABLES; ++i) {
    D_TYPE *type = DutTypeCreate(variables[i].name);
    rings[i] = make_ring(variables[i].name);
    if (type == NULL || rings[i] == NULL) {
      DutOut("set-up failed: error %ld (%s)\n", (long)DutErrNumGet(), DutErrStrGet());
      return 1;
    }
    DutTypeSetUserArg(type, (D_WORD)rings[i]);
  }

  /* The feed: the application's current time follows the data, as in a
   * process reading live values. */
  for (step = 0; step <= last_step; ++step) {
    const D_TIME_VALUE at = time_of(step);
    DutSetCurrentTimeStruct(&at);
    for (i = 0; i < NVARIABLES; ++i) {
      const double value = sample(&variables[i], step);
      if (DutRingArchiveValue(rings[i], &at, &value, D_RING_STATUS_KNOWN, 0) == NULL) {
        DutOut("archive failed at step %ld: error %ld\n", step, (long)DutErrNumGet());
        return 1;
      }
    }
  }

  failed = report("TANK1.LEVEL", &variables[0], last_step);
  for (i = 0; i < NVARIABLES; ++i) release_ring(ring_of(variables[i].name));
  DutOut(failed ? "vqtrend: a read did not match the feed\n" : "vqtrend: done\n");
  return failed;
}

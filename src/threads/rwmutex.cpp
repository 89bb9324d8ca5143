// Read-write mutex built from one library mutex and manual-reset
// conditions, so it runs unchanged wherever the thread layer does.
//
// write.lock_count is the whole state: 0 free, n > 0 read-held, -d
// write-held at depth d. Every field is touched only with `mutex` held;
// waits release it through DutCondWait. The mutex and the conditions are
// the library's own unnamed objects, taken and set through the thread
// layer's inline paths.

#include "vqutil/rwmutex.h"

#include <cstdint>

#include "frame/check.hpp"
#include "threads/own_sync.hpp"
#include "vqutil/error.h"
#include "vqutil/memory.h"
#include "vqutil/thread.h"

namespace {

constexpr const char *kFile = "utthread";

bool quotaOk(D_INT4 quota) { return quota >= 1 && quota <= D_RW_MUTEX_MAX_READ_QUOTA; }

// The checks call out only on failure: these run twice per operation.
void expectStatus(D_BOOL status, D_INT4 line) {
  if (D_TRUE != status) DutExpect(0, "D_TRUE == status", kFile, line);
}

void lockInner(D_RW_MUTEX *rw) { expectStatus(vq::threads::lockOwn(rw->mutex), __LINE__); }

void unlockInner(D_RW_MUTEX *rw) { expectStatus(vq::threads::unlockOwn(rw->mutex), __LINE__); }

void waitOn(D_COND cond, D_RW_MUTEX *rw) {
  expectStatus(DutCondWait(cond, rw->mutex, D_WAIT_FOREVER), __LINE__);
}

// The caller's slot: the first in use whose owner is the caller; -1 if none.
D_INT4 findSlot(const D_RW_MUTEX *rw, D_THREAD self) {
  for (D_INT4 i = 0; i < rw->read_quota; ++i) {
    // Identities are words: equal words are the same thread.
    if (rw->read_lock_counts[i] > 0 && rw->read_threads[i] == self) return i;
  }
  return -1;
}

bool writeHeldBy(const D_RW_MUTEX *rw, D_THREAD self) {
  return rw->write.lock_count < 0 && rw->write.thread == self;
}

bool queueEmpty(const D_RW_MUTEX *rw) { return rw->wait_queue->next == rw->wait_queue; }

void allocSlots(D_RW_MUTEX *rw, D_INT4 quota) {
  rw->read_quota = quota;
  rw->read_threads = static_cast<D_THREAD *>(DutMallocCheck(
      static_cast<D_INT4>(sizeof(D_THREAD)) * quota, "rw_mutex->read_threads", kFile, __LINE__));
  rw->read_lock_counts = static_cast<D_INT4 *>(DutCallocCheck(
      static_cast<D_INT4>(sizeof(D_INT4)) * quota, "rw_mutex->read_lock_counts", kFile, __LINE__));
}

void freeSlots(D_RW_MUTEX *rw) {
  DutFreeCheck(rw->read_threads, "rw_mutex->read_threads", kFile, __LINE__);
  DutFreeCheck(rw->read_lock_counts, "rw_mutex->read_lock_counts", kFile, __LINE__);
  rw->read_threads = nullptr;
  rw->read_lock_counts = nullptr;
}

// The caller's slot as findSlot answers it, and in the same pass the first
// free slot (-1: none), which a new reader that need not wait takes. With
// no upgrader queued the counts in use add up to write.lock_count (none
// while write-held), so the search ends once they are all seen: a free
// lock is not searched at all.
D_INT4 findSlotOrFree(const D_RW_MUTEX *rw, D_THREAD self, D_INT4 *first_free) {
  *first_free = -1;
  D_INT4 unseen = queueEmpty(rw) ? (rw->write.lock_count > 0 ? rw->write.lock_count : 0) : INT32_MAX;
  D_INT4 i = 0;
  for (; i < rw->read_quota && unseen > 0; ++i) {
    const D_INT4 count = rw->read_lock_counts[i];
    if (count > 0) {
      if (rw->read_threads[i] == self) return i;
      unseen -= count;
    } else if (*first_free == -1) {
      *first_free = i;
    }
  }
  if (*first_free == -1 && i < rw->read_quota) *first_free = i;
  return -1;
}

D_INT4 firstFreeSlot(const D_RW_MUTEX *rw) {
  for (D_INT4 i = 0; i < rw->read_quota; ++i) {
    if (rw->read_lock_counts[i] == 0) return i;
  }
  return -1;
}

// A new reader's slot: the first free one (`free_slot`, when known), or a
// new one past the end.
D_INT4 takeSlot(D_RW_MUTEX *rw, D_THREAD self, D_INT4 free_slot) {
  if (free_slot != -1) {
    // Often the slot's stale owner is the caller already: leaving the word
    // alone keeps its cache line shared between the readers' cores.
    if (rw->read_threads[free_slot] != self) rw->read_threads[free_slot] = self;
    return free_slot;
  }
  const D_INT4 slot = rw->read_quota;
  rw->read_quota += 1;
  rw->read_threads = static_cast<D_THREAD *>(
      DutReallocCheck(rw->read_threads, static_cast<D_INT4>(sizeof(D_THREAD)) * rw->read_quota,
                      "rw_mutex->read_threads", kFile, __LINE__));
  rw->read_lock_counts = static_cast<D_INT4 *>(
      DutReallocCheck(rw->read_lock_counts, static_cast<D_INT4>(sizeof(D_INT4)) * rw->read_quota,
                      "rw_mutex->read_lock_counts", kFile, __LINE__));
  rw->read_threads[slot] = self;
  rw->read_lock_counts[slot] = 0;
  return slot;
}

D_BOOL nullRecord() {
  DutErrNumSet(D_ERR_VAL_INVALID);
  return D_FALSE;
}

}  // namespace

extern "C" {

D_EXPORT D_RW_MUTEX *DutRwMutexCreate(D_INT4 locked, D_INT4 read_quota) {
  if ((locked != 0 && locked != 1) || !quotaOk(read_quota)) {
    DutErrNumSet(D_ERR_VAL_INVALID);
    return nullptr;
  }
  auto *rw_mutex =
      static_cast<D_RW_MUTEX *>(DutCallocCheck(sizeof(D_RW_MUTEX), "rw_mutex", kFile, __LINE__));
  rw_mutex->mutex = DutMutexCreate(0);
  VQ_ASSERT(D_INVALID_MUTEX != rw_mutex->mutex, "D_INVALID_MUTEX != rw_mutex->mutex", kFile);
  rw_mutex->read_cond = DutCondCreate();
  VQ_ASSERT(D_INVALID_COND != rw_mutex->read_cond, "D_INVALID_COND != rw_mutex->read_cond", kFile);
  allocSlots(rw_mutex, read_quota);
  // The write record is the queue's head: an empty queue links to itself.
  rw_mutex->wait_queue = &rw_mutex->write.links;
  rw_mutex->write.links.prev = rw_mutex->wait_queue;
  rw_mutex->write.links.next = rw_mutex->wait_queue;
  rw_mutex->write.cond = DutCondCreate();
  VQ_ASSERT(D_INVALID_COND != rw_mutex->write.cond, "D_INVALID_COND != rw_mutex->write.cond", kFile);
  if (locked == 1) {
    rw_mutex->write.lock_count = -1;
    rw_mutex->write.thread = DutThreadSelf();
  }
  return rw_mutex;
}

D_EXPORT D_BOOL DutRwMutexDestroy(D_RW_MUTEX *rw_mutex) {
  if (rw_mutex == nullptr) return nullRecord();
  lockInner(rw_mutex);
  // Only warnings: a lock in use is still destroyed.
  VQ_EXPECT(rw_mutex->write.lock_count <= 0, "rw_mutex->write.lock_count <= 0", kFile);
  VQ_EXPECT(0 == rw_mutex->wait_count, "0 == rw_mutex->wait_count", kFile);
  if (rw_mutex->write.lock_count < 0) {
    VQ_EXPECT(DutThreadEqual(DutThreadSelf(), rw_mutex->write.thread),
              "DutThreadEqual(DutThreadSelf(), rw_mutex->write.thread)", kFile);
  }
  DutCondDestroy(rw_mutex->read_cond);
  freeSlots(rw_mutex);
  DutCondDestroy(rw_mutex->write.cond);
  unlockInner(rw_mutex);
  DutMutexDestroy(rw_mutex->mutex);
  DutFreeCheck(rw_mutex, "rw_mutex", kFile, __LINE__);
  return D_TRUE;
}

D_EXPORT D_BOOL DutRwMutexGetReadQuota(D_RW_MUTEX *rw_mutex, D_INT4 *read_quota) {
  if (rw_mutex == nullptr) return nullRecord();
  if (read_quota == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  lockInner(rw_mutex);
  *read_quota = rw_mutex->read_quota;
  unlockInner(rw_mutex);
  return D_TRUE;
}

D_EXPORT D_BOOL DutRwMutexSetReadQuota(D_RW_MUTEX *rw_mutex, D_INT4 read_quota) {
  if (rw_mutex == nullptr) return nullRecord();
  if (!quotaOk(read_quota)) {
    DutErrNumSet(D_ERR_VAL_INVALID);
    return D_FALSE;
  }
  D_BOOL status = DutRwMutexWriteLock(rw_mutex);
  VQ_ASSERT(D_TRUE == status, "D_TRUE == status", kFile);
  lockInner(rw_mutex);
  freeSlots(rw_mutex);
  allocSlots(rw_mutex, read_quota);
  unlockInner(rw_mutex);
  status = DutRwMutexUnlock(rw_mutex);
  VQ_ASSERT(D_TRUE == status, "D_TRUE == status", kFile);
  return D_TRUE;
}

D_EXPORT D_BOOL DutRwMutexReadLock(D_RW_MUTEX *rw_mutex) {
  if (rw_mutex == nullptr) return nullRecord();
  const D_THREAD self = vq::threads::threadSelf();
  lockInner(rw_mutex);
  if (writeHeldBy(rw_mutex, self)) {
    // A writer's read lock is one more write level.
    rw_mutex->write.lock_count -= 1;
    unlockInner(rw_mutex);
    return D_TRUE;
  }
  D_INT4 free_slot = -1;
  D_INT4 slot = findSlotOrFree(rw_mutex, self, &free_slot);
  if (slot == -1) {
    // Only new readers yield to writers and upgraders; a recursive read
    // must not block, or a reader waiting behind an upgrader deadlocks.
    if (rw_mutex->write.lock_count < 0 || rw_mutex->wait_count > 0) {
      do {
        waitOn(rw_mutex->read_cond, rw_mutex);
      } while (rw_mutex->write.lock_count < 0 || rw_mutex->wait_count > 0);
      free_slot = firstFreeSlot(rw_mutex);  // the slots changed meanwhile
    }
    slot = takeSlot(rw_mutex, self, free_slot);
  }
  rw_mutex->read_lock_counts[slot] += 1;
  rw_mutex->write.lock_count += 1;
  unlockInner(rw_mutex);
  return D_TRUE;
}

D_EXPORT D_BOOL DutRwMutexWriteLock(D_RW_MUTEX *rw_mutex) {
  if (rw_mutex == nullptr) return nullRecord();
  const D_THREAD self = vq::threads::threadSelf();
  lockInner(rw_mutex);
  if (rw_mutex->write.lock_count >= 1 && findSlot(rw_mutex, self) != -1) {
    // A reader cannot wait for the readers to leave: it is one of them.
    unlockInner(rw_mutex);
    const D_BOOL status = DutRwMutexUpgradeLock(rw_mutex, D_WAIT_FOREVER);
    VQ_ASSERT(D_TRUE == status, "D_TRUE == status", kFile);
    lockInner(rw_mutex);
  }
  for (;;) {
    if (rw_mutex->write.lock_count == 0 && queueEmpty(rw_mutex)) break;
    if (writeHeldBy(rw_mutex, self)) break;
    rw_mutex->wait_count += 1;
    waitOn(rw_mutex->write.cond, rw_mutex);
    rw_mutex->wait_count -= 1;
  }
  rw_mutex->write.lock_count -= 1;
  rw_mutex->write.thread = self;
  VQ_ASSERT(rw_mutex->write.lock_count < 0, "rw_mutex->write.lock_count < 0", kFile);
  unlockInner(rw_mutex);
  return D_TRUE;
}

D_EXPORT D_BOOL DutRwMutexUnlock(D_RW_MUTEX *rw_mutex) {
  if (rw_mutex == nullptr) return nullRecord();
  const D_THREAD self = vq::threads::threadSelf();
  lockInner(rw_mutex);
  VQ_ASSERT(rw_mutex->write.lock_count != 0, "rw_mutex->write.lock_count != 0", kFile);
  if (rw_mutex->write.lock_count < 1) {
    VQ_ASSERT(DutThreadEqual(self, rw_mutex->write.thread),
              "DutThreadEqual(self, rw_mutex->write.thread)", kFile);
    rw_mutex->write.lock_count += 1;
  } else {
    const D_INT4 slot = findSlot(rw_mutex, self);
    VQ_ASSERT(-1 != slot, "-1 != slot", kFile);
    rw_mutex->read_lock_counts[slot] -= 1;
    rw_mutex->write.lock_count -= 1;
  }
  if (rw_mutex->write.lock_count == 0) {
    if (rw_mutex->wait_count > 0) {
      // The oldest upgrader, or the plain writers when none is queued (the
      // head of the queue is the write record itself).
      auto *first = reinterpret_cast<D_RW_WAIT *>(rw_mutex->wait_queue->next);
      vq::threads::wakeAllOwn(first->cond);
    } else {
      // Costs one load while no reader has reset it since the last time.
      vq::threads::wakeAllOwn(rw_mutex->read_cond);
    }
  }
  unlockInner(rw_mutex);
  return D_TRUE;
}

D_EXPORT D_BOOL DutRwMutexUpgradeLock(D_RW_MUTEX *rw_mutex, D_REAL8 timeout) {
  if (rw_mutex == nullptr) return nullRecord();
  if (timeout != D_WAIT_FOREVER && timeout < 0.0) {
    DutErrNumSet(D_ERR_VAL_TOO_SMALL);
    return D_FALSE;
  }
  const D_THREAD self = vq::threads::threadSelf();
  lockInner(rw_mutex);
  VQ_ASSERT(rw_mutex->write.lock_count != 0, "rw_mutex->write.lock_count != 0", kFile);
  if (rw_mutex->write.lock_count < 0) {
    VQ_ASSERT(DutThreadEqual(self, rw_mutex->write.thread),
              "DutThreadEqual(self, rw_mutex->write.thread)", kFile);
    unlockInner(rw_mutex);
    return D_TRUE;
  }
  const D_INT4 slot = findSlot(rw_mutex, self);
  VQ_ASSERT(-1 != slot, "-1 != slot", kFile);

  D_BOOL result = D_TRUE;
  if (rw_mutex->write.lock_count != rw_mutex->read_lock_counts[slot]) {
    if (timeout == 0.0) {
      DutErrNumSet(D_ERR_TIMEOUT_REACHED);
      unlockInner(rw_mutex);
      return D_FALSE;
    }
    // Each upgrader sleeps on a condition of its own so that Unlock can
    // wake exactly the oldest one.
    D_RW_WAIT wait{};
    wait.cond = DutCondCreate();
    VQ_ASSERT(D_INVALID_COND != wait.cond, "D_INVALID_COND != wait.cond", kFile);
    wait.lock_count = rw_mutex->read_lock_counts[slot];
    wait.thread = self;
    DutDqRightInsert(&wait, rw_mutex->wait_queue->prev);
    // Our own read locks no longer count: we wait for the others only.
    rw_mutex->write.lock_count -= wait.lock_count;
    while (rw_mutex->write.lock_count != 0) {
      rw_mutex->wait_count += 1;
      // A later upgrader may have gone ahead while our read locks were out
      // of the count. Beside its write levels they cannot be counted back,
      // so giving up is possible only once it has left: wait for that.
      const D_REAL8 wait_for = rw_mutex->write.lock_count < 0 ? D_WAIT_FOREVER : timeout;
      if (DutCondWait(wait.cond, rw_mutex->mutex, wait_for) != D_TRUE) {
        // Timed out without the mutex: take it back and see whether the
        // others left just in time.
        lockInner(rw_mutex);
        rw_mutex->wait_count -= 1;
        if (rw_mutex->write.lock_count < 0) continue;
        result = rw_mutex->write.lock_count == 0 ? D_TRUE : D_FALSE;
        break;
      }
      rw_mutex->wait_count -= 1;
    }
    rw_mutex->write.lock_count += wait.lock_count;
    VQ_ASSERT((wait.lock_count = rw_mutex->read_lock_counts[slot]) != 0,
              "wait.lock_count = rw_mutex->read_lock_counts[slot]", kFile);
    DutDqDetach(rw_mutex->wait_queue, &wait);
    DutCondDestroy(wait.cond);
  }
  if (result == D_TRUE) {
    // Every read lock of ours becomes a write level.
    rw_mutex->write.lock_count = -rw_mutex->write.lock_count;
    rw_mutex->write.thread = self;
    rw_mutex->read_lock_counts[slot] = 0;
  }
  unlockInner(rw_mutex);
  return result;
}

D_EXPORT D_BOOL DutRwMutexReadLocked(D_RW_MUTEX *rw_mutex) {
  if (rw_mutex == nullptr) return nullRecord();
  const D_THREAD self = vq::threads::threadSelf();
  lockInner(rw_mutex);
  const bool held = writeHeldBy(rw_mutex, self) || findSlot(rw_mutex, self) != -1;
  unlockInner(rw_mutex);
  return held ? D_TRUE : D_FALSE;
}

D_EXPORT D_BOOL DutRwMutexWriteLocked(D_RW_MUTEX *rw_mutex) {
  if (rw_mutex == nullptr) return nullRecord();
  const D_THREAD self = vq::threads::threadSelf();
  lockInner(rw_mutex);
  const bool held = writeHeldBy(rw_mutex, self);
  unlockInner(rw_mutex);
  return held ? D_TRUE : D_FALSE;
}

}  // extern "C"

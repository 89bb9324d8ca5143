// Callback types, lists and callbacks.
//
// A list keeps one call-position node per call in progress (a stack, so
// nested and recursive calls each have their own). Every insertion and
// removal adjusts all of them, which is what lets callbacks create, destroy
// and re-prioritise callbacks of the list they are being called from.
//
// Callbacks may long-jump out (the lexer's error functions do), so nothing
// here holds an object with a destructor across a call.
#include "vqutil/callback.h"

#include <cstring>

#include "frame/check.hpp"
#include "frame/hex.hpp"
#include "vqutil/error.h"
#include "vqutil/list.h"
#include "vqutil/memory.h"
#include "vqutil/output.h"
#include "vqutil/strutil.h"
#include "vqutil/thread.h"

namespace {

constexpr const char *kFile = "callback.c";
constexpr D_INT4 kTypeTableSize = 10;
constexpr D_INT4 kInitialListCapacity = 4;
constexpr D_INT4 kQuitTypeNum = D_CB_TYPE_QUIT;

D_HASH_TABLE *utCbTypeTable = nullptr;

// The flag array has a fixed address for the life of the process.
unsigned char *const kDebugFlags = DutGetDebugFlags();

inline bool debugOn() { return kDebugFlags[D_DEBUG_CALLBACK] != 0; }

using vq::hexOf;

inline D_INT4 count(const D_CB_LIST *list) { return list->callbacks == nullptr ? 0 : D_GPA_COUNT(list->callbacks); }

// The array's own fields: this runs once per callback of every call.
inline D_CB *at(const D_CB_LIST *list, D_INT4 index) {
  return reinterpret_cast<D_CB *>(list->callbacks->ptr_ary[index]);
}

bool nullArg(const void *p) {
  if (p != nullptr) return false;
  DutErrNumSet(D_ERR_NULL_PTR);
  return true;
}

// Where a callback of priority p goes: after every callback of equal or
// higher priority, before the first of lower priority.
bool insertPosition(const D_CB_LIST *list, D_INT2 p, D_INT4 *position) {
  D_INT4 n = count(list);
  if (n == 0 || p > at(list, 0)->priority) {
    *position = 0;
    return true;
  }
  if (p <= at(list, n - 1)->priority) {
    *position = n;
    return true;
  }
  for (D_INT4 i = n - 1; i >= 0; --i) {
    if (at(list, i)->priority >= p) {
      *position = i + 1;
      return true;
    }
  }
  VQ_EXPECT(false, "D_FALSE", kFile);
  return false;
}

bool insertCb(D_CB_LIST *list, D_CB *cb) {
  D_INT4 position = 0;
  bool status = insertPosition(list, cb->priority, &position);
  VQ_EXPECT(status, "D_TRUE == status", kFile);
  if (!status) return false;
  D_BOOL inserted = DutPtrAryInsertItemAtIndex(list->callbacks, reinterpret_cast<D_WORD>(cb), position);
  VQ_EXPECT(inserted == D_TRUE, "D_TRUE == status", kFile);
  if (inserted != D_TRUE) return false;
  // A callback placed before the point a call has reached is not called by
  // that call; one at or after it is.
  for (D_CB_CALL_POS *node = list->current_index; node != nullptr; node = node->next) {
    if (position + 1 <= node->index) ++node->index;
  }
  if (debugOn()) {
    DutOut("After insert:\n");
    DutCbPrintList(list, DutOut);
  }
  return true;
}

void removeCb(D_CB_LIST *list, D_CB *cb) {
  D_INT4 index = -1;
  D_BOOL found = DutPtrAryGetItemIndex(list->callbacks, reinterpret_cast<D_WORD>(cb), &index);
  VQ_ASSERT(found == D_TRUE, "D_TRUE == status", kFile);
  D_BOOL removed = DutPtrAryRemoveItemAtIndex(list->callbacks, index, nullptr);
  VQ_EXPECT(removed == D_TRUE, "D_TRUE == status", kFile);
  // Calls in progress neither skip nor repeat a callback.
  for (D_CB_CALL_POS *node = list->current_index; node != nullptr; node = node->next) {
    if (index < node->index && node->index >= 1) --node->index;
  }
  if (debugOn()) {
    DutOut("After remove:\n");
    DutCbPrintList(list, DutOut);
  }
}

// A list as the library allocates it: the record callers see, then the
// call position of the outermost call, so that calling an idle list
// allocates nothing. Nested and recursive calls take their positions from
// the heap; with memory tracing on every position does, so the debug file
// shows each one.
struct ListRecord {
  D_CB_LIST list;
  D_CB_CALL_POS outermost;
};

inline D_CB_CALL_POS *outermostOf(D_CB_LIST *list) { return &reinterpret_cast<ListRecord *>(list)->outermost; }

inline bool memoryTracing() { return kDebugFlags[D_DEBUG_MEMORY] != 0; }

inline D_CB_CALL_POS *pushCall(D_CB_LIST *list) {
  D_CB_CALL_POS *node = nullptr;
  if (list->current_index == nullptr && !memoryTracing()) {
    node = outermostOf(list);
  } else {
    node = static_cast<D_CB_CALL_POS *>(DutMallocCheck(sizeof(D_CB_CALL_POS), "node", kFile, __LINE__));
  }
  node->index = 0;
  node->next = list->current_index;
  list->current_index = node;
  return node;
}

inline void popCall(D_CB_LIST *list) {
  D_CB_CALL_POS *node = list->current_index;
  list->current_index = node->next;
  node->next = nullptr;
  if (node != outermostOf(list)) DutFreeCheck(node, "node", kFile, __LINE__);
}

inline void callOne(D_CB *cb, void *object, void *data) {
  static_cast<D_CB_DATA *>(data)->cb = cb;
  cb->func(object, data, cb->arg);
}

// The object's list of the type, through its lobe; null when none.
D_CB_LIST *objectList(D_CB_TYPE *type, void *object) {
  void *stored = DutLobeFindValue(object, type->lobe);
  if (stored == nullptr) return nullptr;
  D_CB_LIST *list = nullptr;
  std::memcpy(&list, stored, sizeof list);
  return list;
}

void freeCbItem(D_INT4, D_WORD item, void *) { DutFreeCheck(reinterpret_cast<void *>(item), "cb", kFile, __LINE__); }

struct NameMatch {
  const char *name;
};

D_WORD matchName(D_WORD, D_WORD value, void *arg) {
  auto *type = reinterpret_cast<D_CB_TYPE *>(value);
  const char *name = static_cast<NameMatch *>(arg)->name;
  if (type->name != nullptr && DutStrCmpi(type->name, name) == 0) return value;
  return 0;
}

}  // namespace

extern "C" {

// ---- Types ------------------------------------------------------------------

D_EXPORT D_CB_TYPE *DutCbTypeCreate(D_INT4 num, const char *name) {
  DutProcessMutexLock();
  if (utCbTypeTable == nullptr) {
    utCbTypeTable = DutHashCreateInt(kTypeTableSize);
  } else if (DutHashLookupBucket(utCbTypeTable, num) != nullptr) {
    DutProcessMutexUnlock();
    return nullptr;
  }
  auto *new_type = static_cast<D_CB_TYPE *>(DutCallocCheck(sizeof(D_CB_TYPE), "new_type", kFile, __LINE__));
  new_type->num = num;
  new_type->glob_flag = D_CB_GLOBALS_OK;
  new_type->local_flag = D_CB_LOCAL_INDIRECT;
  if (name != nullptr) DutStringCopy(&new_type->name, name);
  DutHashInsert(utCbTypeTable, num, reinterpret_cast<D_WORD>(new_type));
  DutProcessMutexUnlock();
  // The lobe value is the object's list pointer.
  new_type->lobe = DutLobeDeclare(static_cast<D_UINT4>(num), static_cast<D_INT4>(sizeof(D_CB_LIST *)));
  if (new_type->lobe == nullptr) DutWarning("Unable to create lobe\n");
  return new_type;
}

D_EXPORT D_CB_TYPE *DutCbTypeLookup(const char *name) {
  if (nullArg(name)) return nullptr;
  DutProcessMutexLock();
  D_WORD found = 0;
  if (utCbTypeTable != nullptr) {
    NameMatch match{name};
    found = DutHashTraverse(utCbTypeTable, matchName, &match);
  }
  DutProcessMutexUnlock();
  return reinterpret_cast<D_CB_TYPE *>(found);
}

D_EXPORT D_CB_TYPE *DutCbTypeNumLookup(D_INT4 num) {
  DutProcessMutexLock();
  D_CB_TYPE *type = nullptr;
  if (utCbTypeTable != nullptr) {
    D_HASH_BUCKET *bucket = DutHashLookupBucket(utCbTypeTable, num);
    if (bucket != nullptr) type = reinterpret_cast<D_CB_TYPE *>(DutHashBucketGetValue(bucket));
  }
  DutProcessMutexUnlock();
  return type;
}

D_EXPORT D_WORD DutCbTypeTraverse(D_HASH_TRAV_FUNC func, void *arg) {
  DutProcessMutexLock();
  D_WORD result = 0;
  if (utCbTypeTable != nullptr) result = DutHashTraverse(utCbTypeTable, func, arg);
  DutProcessMutexUnlock();
  return result;
}

D_EXPORT D_BOOL DutCbTypeGetNum(D_CB_TYPE *type, D_INT4 *num) {
  if (nullArg(type) || nullArg(num)) return D_FALSE;
  *num = type->num;
  return D_TRUE;
}

D_EXPORT D_BOOL DutCbTypeGetName(D_CB_TYPE *type, const char **name) {
  if (nullArg(type) || nullArg(name)) return D_FALSE;
  *name = type->name;
  return D_TRUE;
}

D_EXPORT D_BOOL DutCbTypeGetGlobFlag(D_CB_TYPE *type, D_INT4 *flag) {
  if (nullArg(type) || nullArg(flag)) return D_FALSE;
  *flag = type->glob_flag;
  return D_TRUE;
}

D_EXPORT D_BOOL DutCbTypeGetLocalFlag(D_CB_TYPE *type, D_INT4 *flag) {
  if (nullArg(type) || nullArg(flag)) return D_FALSE;
  *flag = type->local_flag;
  return D_TRUE;
}

D_EXPORT D_BOOL DutCbTypeSetGlobFlag(D_CB_TYPE *type, D_INT4 flag) {
  if (nullArg(type)) return D_FALSE;
  type->glob_flag = flag;
  return D_TRUE;
}

D_EXPORT D_BOOL DutCbTypeSetLocalFlag(D_CB_TYPE *type, D_INT4 flag) {
  if (nullArg(type)) return D_FALSE;
  if (flag != D_CB_LOCAL_INDIRECT && flag != D_CB_LOCAL_DIRECT) {
    DutErrNumSet(D_ERR_VAL_INVALID);
    return D_FALSE;
  }
  type->local_flag = flag;
  return D_TRUE;
}

// ---- Lists ------------------------------------------------------------------

D_EXPORT D_CB_LIST *DutCbListCreate(D_CB_TYPE *type, void *owner) {
  if (nullArg(type)) return nullptr;
  auto *cbl = static_cast<D_CB_LIST *>(DutCallocCheck(sizeof(ListRecord), "cbl", kFile, __LINE__));
  cbl->owner = owner;
  cbl->type = type;
  cbl->callbacks = DutPtrAryCreate(kInitialListCapacity);
  VQ_ASSERT(cbl->callbacks != nullptr, "D_NULL != D_GCL_CURRLIST(cbl)", kFile);
  return cbl;
}

D_EXPORT D_BOOL DutCbListDestroy(D_CB_LIST *list) {
  if (nullArg(list)) return D_FALSE;
  if (list->current_index != nullptr) {
    list->destroy_pending = 1;
    return D_FALSE;
  }
  if (list->callbacks != nullptr) DutPtrAryDestroy(list->callbacks, freeCbItem, nullptr);
  list->callbacks = nullptr;
  D_CB_TYPE *type = list->type;
  if (type != nullptr) {
    // Keep the type from pointing at a freed list.
    if (type->global_list == list) type->global_list = nullptr;
    if (type->local_flag == D_CB_LOCAL_INDIRECT && list->owner != nullptr) DutLobeDelete(list->owner, type->lobe);
  }
  DutFreeCheck(list, "cbl", kFile, __LINE__);
  return D_TRUE;
}

D_EXPORT D_BOOL DutCbListCall(D_CB_LIST *list, void *object, void *data) {
  if (nullArg(list)) return D_FALSE;
  D_CB_CALL_POS *node = pushCall(list);
  VQ_ASSERT(list->current_index != nullptr, "cblist->current_index", kFile);
  list->stop = 0;
  // The array stays while the list is active (a destruction waits), but
  // its count, its storage and this call's position are re-read after
  // every callback: callbacks may change all three.
  if (const D_PTR_ARY *callbacks = list->callbacks) {
    for (D_INT4 index; (index = node->index) < D_GPA_COUNT(callbacks);) {
      auto *c = reinterpret_cast<D_CB *>(callbacks->ptr_ary[index]);
      node->index = index + 1;
      callOne(c, object, data);
      if ((list->destroy_pending | list->stop) != 0) break;
    }
  }
  popCall(list);
  if (list->current_index != nullptr) return D_TRUE;
  // A global list's pending destruction is never carried out.
  if (list->destroy_pending && list->owner != nullptr) DutCbListDestroy(list);
  return D_TRUE;
}

D_EXPORT D_BOOL DutCbListStopCall(D_CB_LIST *list) {
  if (nullArg(list)) return D_FALSE;
  if (list->current_index == nullptr) return D_FALSE;
  list->stop = 1;
  return D_TRUE;
}

D_EXPORT D_WORD DutCbListTraverse(D_CB_LIST *list, D_CB_LIST_TRAV_FUNC func, void *arg) {
  if (nullArg(list) || nullArg(reinterpret_cast<void *>(func))) return 0;
  for (D_INT4 i = 0; i < count(list); ++i) {
    D_WORD result = func(list, at(list, i), arg);
    if (result != 0) return result;
  }
  return 0;
}

D_EXPORT D_INT4 DutCbListGetDepth(D_CB_LIST *list) {
  VQ_ASSERT(list != nullptr, "D_NULL != cbl", kFile);
  return DutListLength(list->current_index);
}

D_EXPORT D_BOOL DutCbListGetOwner(D_CB_LIST *list, void **owner) {
  if (nullArg(list) || nullArg(owner)) return D_FALSE;
  *owner = list->owner;
  return D_TRUE;
}

D_EXPORT D_BOOL DutCbListGetType(D_CB_LIST *list, D_CB_TYPE **type) {
  if (nullArg(list) || nullArg(type)) return D_FALSE;
  *type = list->type;
  return D_TRUE;
}

D_EXPORT D_CB *DutCbListCbCreate(D_CB_LIST *list, D_CB_FUNC func, D_WORD arg) {
  if (nullArg(list) || nullArg(reinterpret_cast<void *>(func))) return nullptr;
  if (debugOn()) DutDebug("in DutCbListCbCreate\n");
  if (DutCbListCbLookup(list, func, arg) != nullptr) {
    if (debugOn()) DutDebug("Tried to create an existing cb\n");
    DutErrNumSet(D_ERR_ALREADY_EXISTS);
    return nullptr;
  }
  auto *new_cb = static_cast<D_CB *>(DutCallocCheck(sizeof(D_CB), "new_cb", kFile, __LINE__));
  new_cb->func = func;
  new_cb->arg = arg;
  new_cb->list = list;
  new_cb->priority = 0;
  if (!insertCb(list, new_cb)) {
    DutFreeCheck(new_cb, "new_cb", kFile, __LINE__);
    return nullptr;
  }
  return new_cb;
}

D_EXPORT D_CB *DutCbListCbLookup(D_CB_LIST *list, D_CB_FUNC func, D_WORD arg) {
  if (nullArg(list) || nullArg(reinterpret_cast<void *>(func))) return nullptr;
  for (D_INT4 i = 0; i < count(list); ++i) {
    D_CB *cb = at(list, i);
    if (cb->func == func && cb->arg == arg) return cb;
  }
  DutErrNumSet(D_ERR_DOESNT_EXIST);
  return nullptr;
}

D_EXPORT D_BOOL DutCbListSetStartThresh(D_CB_LIST *list, D_UINT2 value) {
  if (nullArg(list)) return D_FALSE;
  list->start_thresh = value;
  DutWarning("DutCbListSetStartThresh not yet implemented\n");
  return D_FALSE;
}

D_EXPORT D_BOOL DutCbListSetCurrentThresh(D_CB_LIST *list, D_UINT2 value) {
  if (nullArg(list)) return D_FALSE;
  list->current_thresh = value;
  DutWarning("DutListSetCurrentThresh not yet implemented\n");
  return D_FALSE;
}

D_EXPORT D_BOOL DutCbListGetStartThresh(D_CB_LIST *list, D_UINT2 *value) {
  if (nullArg(list) || nullArg(value)) return D_FALSE;
  *value = list->start_thresh;
  DutWarning("DutCbListGetStartThresh not yet implemented\n");
  return D_FALSE;
}

D_EXPORT D_BOOL DutCbListGetCurrentThresh(D_CB_LIST *list, D_UINT2 *value) {
  if (nullArg(list) || nullArg(value)) return D_FALSE;
  *value = list->current_thresh;
  DutWarning("DutCbListGetCurrentThresh not yet implemented\n");
  return D_FALSE;
}

// ---- Callbacks --------------------------------------------------------------

D_EXPORT D_BOOL DutCbSetPriority(D_CB *cb, D_UINT2 priority) {
  if (nullArg(cb)) return D_FALSE;
  auto p = static_cast<D_INT2>(priority);
  if (p == cb->priority) {
    if (debugOn()) DutDebug("Specified priority matches existing priority\n");
    return D_TRUE;
  }
  D_CB_LIST *cbl = cb->list;
  VQ_ASSERT(cbl != nullptr, "D_NULL != cbl", kFile);
  removeCb(cbl, cb);
  cb->priority = p;
  return insertCb(cbl, cb) ? D_TRUE : D_FALSE;
}

D_EXPORT D_BOOL DutCbGetPriority(D_CB *cb, D_INT2 *priority) {
  if (nullArg(cb) || nullArg(priority)) return D_FALSE;
  *priority = cb->priority;
  return D_TRUE;
}

D_EXPORT D_BOOL DutCbSetArgument(D_CB *cb, D_WORD arg) {
  if (nullArg(cb)) return D_FALSE;
  if (cb->list != nullptr && DutCbListCbLookup(cb->list, cb->func, arg) != nullptr) return D_FALSE;
  cb->arg = arg;
  return D_TRUE;
}

D_EXPORT D_BOOL DutCbSetFunction(D_CB *cb, D_CB_FUNC func) {
  if (nullArg(cb) || nullArg(reinterpret_cast<void *>(func))) return D_FALSE;
  if (cb->list != nullptr && DutCbListCbLookup(cb->list, func, cb->arg) != nullptr) return D_FALSE;
  cb->func = func;
  return D_TRUE;
}

D_EXPORT D_BOOL DutCbGetFunction(D_CB *cb, D_CB_FUNC *func) {
  if (nullArg(cb) || nullArg(reinterpret_cast<void *>(func))) return D_FALSE;
  *func = cb->func;
  return D_TRUE;
}

D_EXPORT D_BOOL DutCbGetArgument(D_CB *cb, D_WORD *arg) {
  if (nullArg(cb) || nullArg(arg)) return D_FALSE;
  *arg = cb->arg;
  return D_TRUE;
}

D_EXPORT D_BOOL DutCbGetList(D_CB *cb, D_CB_LIST **list) {
  if (nullArg(cb) || nullArg(list)) return D_FALSE;
  *list = cb->list;
  return D_TRUE;
}

D_EXPORT D_BOOL DutCbGetOwner(D_CB *cb, void **owner) {
  if (nullArg(cb) || nullArg(owner)) return D_FALSE;
  VQ_ASSERT(cb->list != nullptr, "D_NULL != D_GCB_LIST(cb)", kFile);
  *owner = cb->list->owner;
  return D_TRUE;
}

D_EXPORT D_BOOL DutCbGetCbType(D_CB *cb, D_CB_TYPE **type) {
  if (nullArg(cb) || nullArg(type)) return D_FALSE;
  VQ_ASSERT(cb->list != nullptr, "D_NULL != D_GCB_LIST(cb)", kFile);
  *type = cb->list->type;
  return D_TRUE;
}

D_EXPORT D_BOOL DutCbDestroy(D_CB *cb) {
  if (nullArg(cb)) return D_FALSE;
  D_CB_LIST *cbl = cb->list;
  VQ_ASSERT(cbl != nullptr, "D_NULL != cbl", kFile);
  removeCb(cbl, cb);
  DutFreeCheck(cb, "cb", kFile, __LINE__);
  return D_TRUE;
}

// ---- By type and object -------------------------------------------------------

D_EXPORT D_BOOL DutCbTypeGetCbList(D_CB_TYPE *type, void *object, D_CB_LIST **list) {
  if (nullArg(type) || nullArg(list)) return D_FALSE;
  if (object == nullptr) {
    *list = type->global_list;
    return *list != nullptr ? D_TRUE : D_FALSE;
  }
  if (type->local_flag == D_CB_LOCAL_DIRECT) {
    DutWarning("DutCbTypeGetCbList: Attempted to look up local cblist, type: %ld\n", static_cast<long>(type->num));
    return D_FALSE;
  }
  D_CB_LIST *found = objectList(type, object);
  if (found == nullptr) return D_FALSE;
  *list = found;
  return D_TRUE;
}

D_EXPORT D_CB_LIST *DutCbTypeCbListCreate(D_CB_TYPE *type, void *object) {
  if (nullArg(type) || nullArg(object)) return nullptr;
  if (type->local_flag == D_CB_LOCAL_DIRECT) return nullptr;
  D_CB_LIST *list = DutCbListCreate(type, object);
  DutLobeSet(object, type->lobe, &list);
  return list;
}

D_EXPORT D_CB *DutCbTypeCbCreate(D_CB_TYPE *type, void *object, D_CB_FUNC func, D_WORD arg) {
  if (nullArg(type)) return nullptr;
  if (object == nullptr) return DutCbCreateGlobal(type, func, arg);
  if (type->local_flag == D_CB_LOCAL_DIRECT) return nullptr;
  D_CB_LIST *list = objectList(type, object);
  if (list == nullptr) list = DutCbTypeCbListCreate(type, object);
  if (list == nullptr) return nullptr;
  return DutCbListCbCreate(list, func, arg);
}

D_EXPORT D_CB *DutCbCreateGlobal(D_CB_TYPE *type, D_CB_FUNC func, D_WORD arg) {
  if (nullArg(type) || nullArg(reinterpret_cast<void *>(func))) return nullptr;
  if (type->glob_flag == D_CB_NO_GLOBALS) {
    if (debugOn()) DutDebug("Tried to create an unsupported global cb, type: %ld\n", static_cast<long>(type->num));
    DutErrNumSet(D_ERR_TYPE_MISMATCH);
    return nullptr;
  }
  if (type->global_list == nullptr) type->global_list = DutCbListCreate(type, nullptr);
  return DutCbListCbCreate(type->global_list, func, arg);
}

D_EXPORT D_CB *DutCbTypeCbLookup(D_CB_TYPE *type, void *object, D_CB_FUNC func, D_WORD arg) {
  if (nullArg(type) || nullArg(reinterpret_cast<void *>(func))) return nullptr;
  if (object != nullptr && type->local_flag == D_CB_LOCAL_DIRECT) {
    DutWarning("Attempted to use DutCbTypeCbLookup for local cb list (type: %ld)!\n", static_cast<long>(type->num));
    DutErrNumSet(D_ERR_TYPE_MISMATCH);
    return nullptr;
  }
  D_CB_LIST *list = object == nullptr ? type->global_list : objectList(type, object);
  if (list == nullptr) {
    DutErrNumSet(D_ERR_DOESNT_EXIST);
    return nullptr;
  }
  return DutCbListCbLookup(list, func, arg);
}

D_EXPORT D_BOOL DutCbTypeCall(D_CB_TYPE *type, void *object, void *data) {
  if (nullArg(type) || nullArg(data)) return D_FALSE;
  switch (type->glob_flag) {
    case D_CB_GLOBAL_ONLY:
      if (type->global_list != nullptr) DutCbListCall(type->global_list, object, data);
      return D_TRUE;
    case D_CB_NO_GLOBALS: {
      D_CB_LIST *list = object != nullptr ? objectList(type, object) : nullptr;
      if (list != nullptr) DutCbListCall(list, object, data);
      return D_TRUE;
    }
    case D_CB_GLOBALS_OK: {
      D_CB_LIST *objlist = object != nullptr ? objectList(type, object) : nullptr;
      D_CB_LIST *globlist = type->global_list;
      if (objlist == nullptr) {
        if (globlist != nullptr) DutCbListCall(globlist, object, data);
        return D_TRUE;
      }
      if (globlist == nullptr) {
        DutCbListCall(objlist, object, data);
        return D_TRUE;
      }
      bool obj_empty = count(objlist) == 0;
      bool glob_empty = count(globlist) == 0;
      if (obj_empty && glob_empty) return D_TRUE;
      if (!obj_empty && !glob_empty) {
        DutCbMergeCall(objlist, globlist, object, data);
      } else if (!obj_empty) {
        DutCbListCall(objlist, object, data);
      } else {
        DutCbListCall(globlist, object, data);
      }
      return D_TRUE;
    }
    default:
      DutWarning("Unexpected global flag (%d) in DutCbTypeCall\n", static_cast<int>(type->glob_flag));
      return D_TRUE;
  }
}

D_EXPORT void DutCbMergeCall(D_CB_LIST *objlist, D_CB_LIST *globlist, void *object, void *data) {
  VQ_ASSERT(objlist != nullptr, "objlist", kFile);
  VQ_ASSERT(globlist != nullptr, "globlist", kFile);
  D_CB_CALL_POS *onode = pushCall(objlist);
  VQ_ASSERT(objlist->current_index != nullptr, "objlist->current_index", kFile);
  D_CB_CALL_POS *gnode = pushCall(globlist);
  VQ_ASSERT(globlist->current_index != nullptr, "globlist->current_index", kFile);
  objlist->stop = 0;
  globlist->stop = 0;

  bool stopped = false;
  while (onode->index < count(objlist) && gnode->index < count(globlist)) {
    D_CB *o = at(objlist, onode->index);
    D_CB *g = at(globlist, gnode->index);
    if (o->priority < g->priority) {
      gnode->index = gnode->index + 1;
      callOne(g, object, data);
    } else {
      // On a tie the object's callback goes first.
      onode->index = onode->index + 1;
      if (objlist->destroy_pending) continue;
      callOne(o, object, data);
    }
    if (objlist->stop || globlist->stop) {
      stopped = true;
      break;
    }
  }
  if (!stopped) {
    while (gnode->index < count(globlist)) {
      D_CB *g = at(globlist, gnode->index);
      gnode->index = gnode->index + 1;
      callOne(g, object, data);
      if (globlist->stop) {
        stopped = true;
        break;
      }
    }
  }
  // Only once the globals are exhausted: a stop in them ends the pass, even
  // for object callbacks they added.
  if (!stopped) {
    while (onode->index < count(objlist)) {
      D_CB *o = at(objlist, onode->index);
      onode->index = onode->index + 1;
      callOne(o, object, data);
      if (objlist->destroy_pending || objlist->stop) break;
    }
  }
  popCall(objlist);
  popCall(globlist);
  if (objlist->current_index == nullptr && objlist->destroy_pending) DutCbListDestroy(objlist);
}

D_EXPORT D_BOOL DutCbObjClear(D_CB_TYPE *type, void *object) {
  if (nullArg(type) || nullArg(object)) return D_FALSE;
  D_CB_LIST *list = objectList(type, object);
  if (list == nullptr) return D_FALSE;
  return DutCbListDestroy(list);
}

// The type first: with no such type there is nothing to look up, call or
// clear, whatever the other arguments are.
D_EXPORT D_CB *DutCbTypeNumCbLookup(D_INT4 num, void *object, D_CB_FUNC func, D_WORD arg) {
  D_CB_TYPE *type = DutCbTypeNumLookup(num);
  if (type == nullptr) return nullptr;
  return DutCbTypeCbLookup(type, object, func, arg);
}

D_EXPORT D_BOOL DutCbTypeNumCbDestroy(D_INT4 num, void *object, D_CB_FUNC func, D_WORD arg) {
  D_CB *cb = DutCbTypeNumCbLookup(num, object, func, arg);
  if (cb == nullptr) return D_FALSE;
  return DutCbDestroy(cb);
}

D_EXPORT D_BOOL DutCbTypeNumCbCall(D_INT4 num, void *object, void *data) {
  D_CB_TYPE *type = DutCbTypeNumLookup(num);
  if (type == nullptr) return D_TRUE;  // nothing to call
  return DutCbTypeCall(type, object, data);
}

D_EXPORT D_BOOL DutCbTypeNumObjClear(D_INT4 num, void *object) {
  D_CB_TYPE *type = DutCbTypeNumLookup(num);
  if (type == nullptr) return D_FALSE;
  return DutCbObjClear(type, object);
}

D_EXPORT D_CB *DutQuitCbCreate(D_CB_FUNC func, D_WORD arg) {
  D_CB_TYPE *type = DutCbTypeNumLookup(kQuitTypeNum);
  if (type == nullptr) {
    type = DutCbTypeCreate(kQuitTypeNum, "quit");
    // Another thread may have made it between the lookup and the create.
    if (type == nullptr) type = DutCbTypeNumLookup(kQuitTypeNum);
    if (type == nullptr) return nullptr;
    type->glob_flag = D_CB_GLOBAL_ONLY;
  }
  return DutCbCreateGlobal(type, func, arg);
}

D_EXPORT D_CB *DutQuitCbLookup(D_CB_FUNC func, D_WORD arg) {
  D_CB_TYPE *type = DutCbTypeNumLookup(kQuitTypeNum);
  if (type == nullptr || type->global_list == nullptr) {
    DutErrNumSet(D_ERR_DOESNT_EXIST);
    return nullptr;
  }
  return DutCbListCbLookup(type->global_list, func, arg);
}

// ---- Dumps --------------------------------------------------------------------

D_EXPORT void DutCbPrint(D_CB *cb, D_PRINT_FUNC out) {
  if (nullArg(cb) || nullArg(reinterpret_cast<void *>(out))) return;
  out("Cb dump of %" PRIxPTR " ", hexOf(cb));
  out("Func: %" PRIxPTR ", arg: %" PRIxPTR "\n", hexOf(cb->func), hexOf(cb->arg));
  out("\tList: %" PRIxPTR ", pri: %d ", hexOf(cb->list), static_cast<int>(cb->priority));
  D_CB_LIST *list = cb->list;
  out("Owner: %" PRIxPTR ", Type Num: %ld\n", hexOf(list != nullptr ? list->owner : nullptr),
      static_cast<long>(list != nullptr && list->type != nullptr ? list->type->num : 0));
}

D_EXPORT void DutCbPrintList(D_CB_LIST *list, D_PRINT_FUNC out) {
  if (nullArg(list) || nullArg(reinterpret_cast<void *>(out))) return;
  out("Cb List Dump of %" PRIxPTR " ", hexOf(list));
  out("Owner: %" PRIxPTR ", Type: %ld\n", hexOf(list->owner),
      static_cast<long>(list->type != nullptr ? list->type->num : 0));
  out("Current List has %ld entries:\n", static_cast<long>(count(list)));
  for (D_INT4 i = 0; i < count(list); ++i) {
    out("\t%ld - ", static_cast<long>(i + 1));
    DutCbPrint(at(list, i), out);
  }
  out("Start thresh %d, current thresh: %d ", static_cast<int>(list->start_thresh),
      static_cast<int>(list->current_thresh));
  out("Active: %s\n", list->current_index != nullptr ? "YES" : "NO");
}

D_EXPORT void DutCbPrintType(D_CB_TYPE *type, D_PRINT_FUNC out) {
  if (nullArg(type) || nullArg(reinterpret_cast<void *>(out))) return;
  out("Callback Type Dump at %" PRIxPTR ", Type Number: %ld\n", hexOf(type), static_cast<long>(type->num));
  out("Callback type name: %s\n", type->name != nullptr ? type->name : "Unnamed");
  out("Global flag: ");
  switch (type->glob_flag) {
    case D_CB_GLOBAL_ONLY:
      out("global_only ");
      break;
    case D_CB_NO_GLOBALS:
      out("no_globals ");
      break;
    case D_CB_GLOBALS_OK:
      out("globals_ok ");
      break;
    default:
      break;
  }
  out(type->local_flag == D_CB_LOCAL_INDIRECT ? "indirect\n" : "direct\n");
}

}  // extern "C"

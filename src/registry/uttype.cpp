// The type registry: a case-insensitive name table and a number array in
// which the type numbered n sits at position n - 1. Both are made once and
// live as long as the process. Registration happens at start-up on one
// thread, so nothing here takes a lock.
#include "frame/check.hpp"
#include "vqutil/error.h"
#include "vqutil/hash.h"
#include "vqutil/memory.h"
#include "vqutil/ptrary.h"
#include "vqutil/strutil.h"
#include "vqutil/type.h"

namespace {

constexpr const char *kFile = "uttype.c";
constexpr D_INT4 kInitialSize = 32;

D_HASH_TABLE *utTypeTable = nullptr;
D_PTR_ARY *utTypeArray = nullptr;

bool refuse(D_INT4 error) {
  DutErrNumSet(error);
  return false;
}

bool haveRegistry() { return utTypeTable != nullptr && utTypeArray != nullptr; }

// Orders two names by the numbers of the types they lead to.
D_INT4 compareByNum(D_WORD name1, D_WORD name2) {
  D_INT4 num1 = 0;
  D_INT4 num2 = 0;
  D_BOOL status = DutTypeGetNum(DutTypeLookup(reinterpret_cast<const char *>(name1)), &num1);
  VQ_EXPECT(status == D_TRUE, "status", kFile);
  status = DutTypeGetNum(DutTypeLookup(reinterpret_cast<const char *>(name2)), &num2);
  VQ_EXPECT(status == D_TRUE, "status", kFile);
  if (num1 == num2) return 0;
  return num1 < num2 ? -1 : 1;
}

}  // namespace

extern "C" {

D_EXPORT D_BOOL DutTypeInitialize(void) {
  if (utTypeTable != nullptr || utTypeArray != nullptr) return refuse(D_ERR_ALREADY_EXISTS);
  utTypeTable = DutHashCreateStri(kInitialSize);
  utTypeArray = DutPtrAryCreate(kInitialSize);
  return D_TRUE;
}

D_EXPORT D_TYPE *DutTypeCreate(const char *name) {
  if (name == nullptr || !haveRegistry()) {
    refuse(D_ERR_NULL_PTR);
    return nullptr;
  }
  auto *type = static_cast<D_TYPE *>(DutMallocCheck(sizeof(D_TYPE), "type_rec", kFile, __LINE__));
  type->name = nullptr;
  DutStringCopy(&type->name, name);
  D_INT4 index = -1;
  D_BOOL status = DutPtrAryAppend(utTypeArray, reinterpret_cast<D_WORD>(type), &index);
  VQ_EXPECT(status == D_TRUE, "status", kFile);
  type->num = index + 1;
  type->return_func = nullptr;
  type->return_arg = 0;
  type->assign_func = nullptr;
  type->user_arg = 0;
  // A name already registered keeps leading to its first type: the table
  // refuses the second key and only warns. The new type is still reachable
  // by its number.
  DutHashInsert(utTypeTable, reinterpret_cast<D_WORD>(type->name), reinterpret_cast<D_WORD>(type));
  return type;
}

D_EXPORT D_TYPE *DutTypeLookup(const char *name) {
  if (name == nullptr || !haveRegistry()) {
    refuse(D_ERR_NULL_PTR);
    return nullptr;
  }
  return reinterpret_cast<D_TYPE *>(DutHashLookup(utTypeTable, reinterpret_cast<D_WORD>(name)));
}

D_EXPORT D_TYPE *DutTypeLookupByNum(D_INT4 num) {
  if (!haveRegistry()) {
    refuse(D_ERR_NULL_PTR);
    return nullptr;
  }
  if (num == 0) {
    refuse(D_ERR_VAL_TOO_SMALL);
    return nullptr;
  }
  // Compared as unsigned, so every negative number is too large.
  if (static_cast<D_UINT4>(num) > static_cast<D_UINT4>(D_GPA_COUNT(utTypeArray))) {
    refuse(D_ERR_VAL_TOO_LARGE);
    return nullptr;
  }
  return reinterpret_cast<D_TYPE *>(DutPtrAryGetArray(utTypeArray)[num - 1]);
}

D_EXPORT D_BOOL DutTypeGetName(D_TYPE *type, const char **name) {
  if (type == nullptr || name == nullptr) return refuse(D_ERR_NULL_PTR);
  *name = type->name;
  return D_TRUE;
}

D_EXPORT D_BOOL DutTypeGetNum(D_TYPE *type, D_INT4 *num) {
  if (type == nullptr || num == nullptr) return refuse(D_ERR_NULL_PTR);
  *num = type->num;
  return D_TRUE;
}

D_EXPORT D_BOOL DutTypeGetUserArg(D_TYPE *type, D_WORD *user_arg) {
  if (type == nullptr || user_arg == nullptr) return refuse(D_ERR_NULL_PTR);
  *user_arg = type->user_arg;
  return D_TRUE;
}

D_EXPORT D_BOOL DutTypeGetReturnFunc(D_TYPE *type, D_TYPE_FUNC *func, D_WORD *arg) {
  if (type == nullptr || func == nullptr || arg == nullptr) return refuse(D_ERR_NULL_PTR);
  *func = type->return_func;
  *arg = type->return_arg;
  return D_TRUE;
}

D_EXPORT D_BOOL DutTypeSetReturnFunc(D_TYPE *type, D_TYPE_FUNC func, D_WORD arg) {
  if (type == nullptr) return refuse(D_ERR_NULL_PTR);
  type->return_func = func;
  type->return_arg = arg;
  return D_TRUE;
}

D_EXPORT D_BOOL DutTypeSetAssignFunc(D_TYPE *type, D_TYPE_FUNC func) {
  if (type == nullptr) return refuse(D_ERR_NULL_PTR);
  type->assign_func = func;
  return D_TRUE;
}

D_EXPORT D_BOOL DutTypeSetUserArg(D_TYPE *type, D_WORD user_arg) {
  if (type == nullptr) return refuse(D_ERR_NULL_PTR);
  type->user_arg = user_arg;
  return D_TRUE;
}

D_EXPORT D_WORD DutTypeTraverse(D_HASH_TRAV_FUNC func, void *arg) {
  if (func == nullptr || !haveRegistry()) {
    refuse(D_ERR_NULL_PTR);
    return 0;
  }
  return DutHashTraverse(utTypeTable, func, arg);
}

D_EXPORT D_TYPE **DutTypeSortByNum(D_INT4 *count) {
  if (count != nullptr) *count = 0;
  if (count == nullptr || !haveRegistry()) {
    refuse(D_ERR_NULL_PTR);
    return nullptr;
  }
  return reinterpret_cast<D_TYPE **>(DutHashSort(utTypeTable, count, compareByNum, nullptr));
}

}  // extern "C"

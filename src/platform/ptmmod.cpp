// Dynamic modules: shared libraries loaded by name with reference counts.
#include <cstring>

#include "frame/check.hpp"
#include "platform/dl.hpp"
#include "vqutil/error.h"
#include "vqutil/hash.h"
#include "vqutil/memory.h"
#include "vqutil/module.h"
#include "vqutil/strutil.h"
#include "vqutil/thread.h"

namespace {

constexpr const char *kFile = "ptmmod.c";
constexpr D_INT4 kTableSize = 4;

D_HASH_TABLE *ptModuleTable = nullptr;

bool nullArg(const void *p) {
  if (p != nullptr) return false;
  DutErrNumSet(D_ERR_NULL_PTR);
  return true;
}

const D_MODULE_INFO *infoOf(D_MODULE *module) {
  return static_cast<const D_MODULE_INFO *>(vq::os::librarySymbol(module->handle, "ModuleInfo"));
}

D_BOOL infoWord(D_MODULE *module, D_WORD *out, D_WORD D_MODULE_INFO::*field) {
  if (nullArg(module) || nullArg(out)) return D_FALSE;
  const D_MODULE_INFO *info = infoOf(module);
  if (info == nullptr) return D_FALSE;
  *out = info->*field;
  return D_TRUE;
}

}  // namespace

extern "C" {

D_EXPORT D_MODULE *DptModuleLookup(const char *name) {
  if (nullArg(name)) return nullptr;
  DutProcessMutexLock();
  if (ptModuleTable == nullptr) ptModuleTable = DutHashCreateStr(kTableSize);
  D_HASH_BUCKET *bucket = DutHashLookupBucket(ptModuleTable, reinterpret_cast<D_WORD>(name));
  D_MODULE *module = bucket != nullptr ? reinterpret_cast<D_MODULE *>(DutHashBucketGetValue(bucket)) : nullptr;
  DutProcessMutexUnlock();
  return module;
}

D_EXPORT D_MODULE *DptModuleCreate(const char *name, D_WORD arg) {
  if (nullArg(name)) return nullptr;
  const char *extension = std::strchr(name, '.') == nullptr ? vq::os::libraryExtension() : "";
  std::size_t n = std::strlen(name) + std::strlen(extension) + 1;
  char *file_name = static_cast<char *>(DutMallocCheck(static_cast<D_INT4>(n), "file_name", kFile, __LINE__));
  std::strcpy(file_name, name);
  std::strcat(file_name, extension);

  D_MODULE *found = DptModuleLookup(file_name);
  if (found != nullptr) {
    DutFreeCheck(file_name, "file_name", kFile, __LINE__);
    ++found->ref_count;
    return found;
  }
  void *handle = vq::os::libraryOpen(file_name);
  DutFreeCheck(file_name, "file_name", kFile, __LINE__);

  auto *mod = static_cast<D_MODULE *>(DutMallocCheck(sizeof(D_MODULE), "mod", kFile, __LINE__));
  VQ_ASSERT(mod != nullptr, "mod != D_NULL", kFile);
  mod->name = nullptr;
  DutStringCopy(&mod->name, name);
  mod->handle = handle;
  mod->ref_count = 1;

  auto init = reinterpret_cast<D_MODULE_INIT_FUNC>(vq::os::librarySymbol(handle, "DptModuleInit"));
  if (init != nullptr && init(arg) == 0) {
    vq::os::libraryClose(handle);
    DutFreeCheck(mod->name, "mod->name", kFile, __LINE__);
    DutFreeCheck(mod, "mod", kFile, __LINE__);
    return nullptr;
  }
  DutProcessMutexLock();
  if (ptModuleTable == nullptr) ptModuleTable = DutHashCreateStr(kTableSize);
  // A bare name created twice is refused here as a duplicate (with the
  // table's warning): the table keeps the first record.
  DutHashInsert(ptModuleTable, reinterpret_cast<D_WORD>(mod->name), reinterpret_cast<D_WORD>(mod));
  DutProcessMutexUnlock();
  return mod;
}

D_EXPORT D_WORD DptModuleDestroy(D_MODULE *module, D_WORD arg) {
  if (nullArg(module)) return 0;
  if (module->ref_count > 1) {
    --module->ref_count;
    return 1;
  }
  D_WORD result = 1;
  auto clean_up = reinterpret_cast<D_MODULE_CLEAN_UP_FUNC>(vq::os::librarySymbol(module->handle, "DptModuleCleanUp"));
  if (clean_up != nullptr) result = clean_up(arg);
  vq::os::libraryClose(module->handle);
  // Unlike a bare table of names, the table must not keep a freed record:
  // a later lookup would hand it out again.
  DutProcessMutexLock();
  if (ptModuleTable != nullptr) {
    D_HASH_BUCKET *bucket = DutHashLookupBucket(ptModuleTable, reinterpret_cast<D_WORD>(module->name));
    if (bucket != nullptr && DutHashBucketGetValue(bucket) == reinterpret_cast<D_WORD>(module))
      DutHashDelete(ptModuleTable, reinterpret_cast<D_WORD>(module->name));
  }
  DutProcessMutexUnlock();
  DutFreeCheck(module->name, "module->name", kFile, __LINE__);
  DutFreeCheck(module, "module", kFile, __LINE__);
  return result;
}

D_EXPORT void *DptModuleGetSymbol(D_MODULE *module, const char *symbol) {
  if (nullArg(module) || nullArg(symbol)) return nullptr;
  return vq::os::librarySymbol(module->handle, symbol);
}

D_EXPORT D_BOOL DptModuleGetFileName(D_MODULE *module, const char **name) {
  if (nullArg(module) || nullArg(name)) return D_FALSE;
  *name = module->name;
  return D_TRUE;
}

D_EXPORT D_BOOL DptModuleGetId(D_MODULE *module, D_WORD *id) { return infoWord(module, id, &D_MODULE_INFO::id); }
D_EXPORT D_BOOL DptModuleGetName(D_MODULE *module, D_WORD *name) {
  return infoWord(module, name, &D_MODULE_INFO::name);
}
D_EXPORT D_BOOL DptModuleGetVersion(D_MODULE *module, D_WORD *version) {
  return infoWord(module, version, &D_MODULE_INFO::version);
}
D_EXPORT D_BOOL DptModuleGetType(D_MODULE *module, D_WORD *type) {
  return infoWord(module, type, &D_MODULE_INFO::type);
}

}  // extern "C"

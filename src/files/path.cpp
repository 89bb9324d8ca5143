// Search paths: ordered directory lists in which files are looked for.
#include <cstring>
#include <string>
#include <vector>

#include "files/files_internal.hpp"
#include "platform/fs.hpp"
#include "threads/process_lock.hpp"
#include "vqutil/error.h"
#include "vqutil/file.h"
#include "vqutil/memory.h"

// One directory entry; the list keeps insertion order.
struct D_PATH_NODE {
  D_PATH_NODE *next;
  char *path_name;
};

struct D_PATH {
  D_PATH_NODE *first;
  D_PATH_NODE *last;
};

namespace {

char utPathFindBuffer[vq::files::kNameBufferSize];

}  // namespace

extern "C" {

D_EXPORT D_PATH *DutPathCreate(void) {
  D_PATH *path = nullptr;
  D_CALLOC(path, sizeof(D_PATH));
  return path;
}

D_EXPORT D_BOOL DutPathAddDir(D_PATH *path, const char *directory) {
  if (path == nullptr || directory == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  D_PATH_NODE *new_path = nullptr;
  D_CALLOC(new_path, sizeof(D_PATH_NODE));
  std::size_t size = std::strlen(directory) + 1;
  new_path->path_name = static_cast<char *>(
      DutMallocCheck(static_cast<D_INT4>(size), "(new_path)", __FILE__, __LINE__));
  std::memcpy(new_path->path_name, directory, size);
  if (path->last == nullptr) {
    path->first = new_path;
  } else {
    path->last->next = new_path;
  }
  path->last = new_path;
  return D_TRUE;
}

D_EXPORT D_BOOL DutPathDeleteDir(D_PATH *path, const char *directory) {
  if (path == nullptr || directory == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  D_PATH_NODE *prev = nullptr;
  for (D_PATH_NODE *pn = path->first; pn != nullptr; prev = pn, pn = pn->next) {
    if (!vq::os::sameFileName(pn->path_name, directory)) continue;
    if (prev == nullptr) {
      path->first = pn->next;
    } else {
      prev->next = pn->next;
    }
    if (path->last == pn) path->last = prev;
    D_FREE(pn->path_name);
    D_FREE(pn);
    return D_TRUE;
  }
  DutErrNumSet(D_ERR_DOESNT_EXIST);
  return D_FALSE;
}

D_EXPORT void *DutPathForEachDir(D_PATH *path, D_PATH_FUNC func, void *arg) {
  if (path == nullptr || func == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return nullptr;
  }
  for (D_PATH_NODE *pn = path->first; pn != nullptr; pn = pn->next) {
    if (void *result = func(pn->path_name, arg)) return result;
  }
  return nullptr;
}

D_EXPORT void DutPathDestroy(D_PATH *path) {
  if (path == nullptr) return;
  D_PATH_NODE *pn = path->first;
  while (pn != nullptr) {
    D_PATH_NODE *next = pn->next;
    D_FREE(pn->path_name);
    D_FREE(pn);
    pn = next;
  }
  D_FREE(path);
}

D_EXPORT char *DutPathFindFile(D_PATH *path, const char *name, char *buffer) {
  if (name == nullptr) return nullptr;
  const std::string folded = vq::os::foldFileName(name);
  name = folded.c_str();
  // The shared answer buffer is held for the whole search.
  vq::ProcessLock lock;
  char *result = buffer != nullptr ? buffer : utPathFindBuffer;
  result[0] = '\0';
  if (path == nullptr) {
    if (!DutFileExists(name)) return nullptr;
    std::strcpy(result, name);
    return result;
  }
  // Each candidate is joined aside: only a name that exists (and so fits
  // the system's path limit) is written into the answer buffer.
  std::vector<char> candidate;
  for (D_PATH_NODE *pn = path->first; pn != nullptr; pn = pn->next) {
    candidate.resize(std::strlen(pn->path_name) + std::strlen(name) + 2);
    DutBuildFileName(candidate.data(), pn->path_name, name, nullptr);
    if (DutFileExists(candidate.data())) return std::strcpy(result, candidate.data());
  }
  return nullptr;
}

}  // extern "C"

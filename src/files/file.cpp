// The open-file registry, backups, viewing and editing, and the
// interrupt-safe I/O wrappers.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "files/file_options.hpp"
#include "files/files_internal.hpp"
#include "frame/check.hpp"
#include "frame/hex.hpp"
#include "platform/fs.hpp"
#include "platform/os.hpp"
#include "platform/signals.hpp"
#include "threads/process_lock.hpp"
#include "vqutil/error.h"
#include "vqutil/file.h"
#include "vqutil/interrupt.h"
#include "vqutil/list.h"
#include "vqutil/memory.h"
#include "vqutil/output.h"

namespace {

using vq::files::kFileLabel;

// One per distinct open file name; starts with the deque links.
struct FileNode {
  D_DQ_NODE links;
  char *fname;
  char *mode;
  FILE *stream;
  D_INT4 ref_count;
};

// The registry deque (its sentinel), created on first use; all of these
// are guarded by the process-wide lock.
D_DQ_NODE *utOpenFiles = nullptr;
D_FILE_OPEN_FUNC utFileOpenFunc = nullptr;
D_FILE_CLOSE_FUNC utFileCloseFunc = nullptr;
D_FILE_READ_FUNC utFileReadFunc = nullptr;

bool tracing() { return DutGetDebugFlags()[D_DEBUG_FILE] != 0; }

FileNode *nodeOf(D_DQ_NODE *link) { return reinterpret_cast<FileNode *>(link); }

template <typename Visit>
FileNode *findNode(Visit matches) {
  if (utOpenFiles == nullptr) return nullptr;
  for (D_DQ_NODE *p = utOpenFiles->next; p != utOpenFiles; p = p->next) {
    if (matches(nodeOf(p))) return nodeOf(p);
  }
  return nullptr;
}

FileNode *findByName(const char *name) {
  return findNode([name](FileNode *n) { return vq::os::sameFileName(n->fname, name); });
}

FileNode *findByStream(FILE *stream) {
  return findNode([stream](FileNode *n) { return n->stream == stream; });
}

FILE *openStream(const char *name, const char *mode) {
  return utFileOpenFunc != nullptr ? utFileOpenFunc(name, mode) : DutFOpen(name, mode);
}

int closeStream(FILE *stream) {
  return utFileCloseFunc != nullptr ? utFileCloseFunc(stream) : std::fclose(stream);
}

char *copyOf(const char *text, const char *label) {
  std::size_t size = std::strlen(text) + 1;
  auto *copy =
      static_cast<char *>(DutMallocCheck(static_cast<D_INT4>(size), label, __FILE__, __LINE__));
  std::memcpy(copy, text, size);
  return copy;
}

void freeNode(FileNode *node) {
  DutDqDetach(utOpenFiles, node);
  D_FREE(node->fname);
  D_FREE(node->mode);
  D_FREE(node);
}

const char *chooseEditor() {
  const char *editor = vq::files::editorOption();
  if (editor == nullptr || editor[0] == '\0') editor = std::getenv("EDITOR");
  if (editor == nullptr || editor[0] == '\0') editor = "vi";
  return editor;
}

// The console interrupt stays away from a low-level call in progress.
void interruptDisable() {
  int error = vq::os::ignoreInterrupt();
  if (error != 0) {
    DutErrNumSetC(error);
    DutPerror("signal");
    DutWarning("utInterruptDisable: could not disable SIGINT handler.\n");
  }
}

void interruptEnable() {
  if (!vq::os::installInterruptHandler(DutSigintHandler)) {
    DutErrNumSetOs(vq::os::lastError());
    DutPerror("signal");
    DutWarning("utInterruptEnable: could not install SIGINT handler.\n");
  }
}

// Runs call with the interrupt ignored; a failure's error numbers survive
// the handler's reinstallation.
template <typename Call>
long atomically(Call call) {
  interruptDisable();
  int error = 0;
  long result = call(&error);
  D_ERR_SAVE saved;
  if (result < 0) {
    DutErrNumSetC(error);
    DutErrNumSave(&saved);
  }
  interruptEnable();
  if (result < 0) DutErrNumRestore(&saved);
  return result;
}

}  // namespace

namespace vq::files {

bool runEditor(const char *name, long line) {
  const char *editor = chooseEditor();
  if (std::strcmp(editor, "_cat") == 0) return DutCatFile(name) != D_FALSE;
  std::string command;
  if (std::strcmp(editor, "emacs") == 0) {
    command = "emacs +" + std::to_string(line) + " " + name;
  } else {
    command = std::string(editor) + " " + name;
  }
  int status = DutSystem(command.c_str());
  if (status == -1) return false;
  if (status != 0) {
    DutErrNumSet(D_ERR_VAL_INVALID);
    return false;
  }
  return true;
}

}  // namespace vq::files

extern "C" {

D_EXPORT D_BOOL DutBackupFile(const char *name) {
  if (name == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  D_INT4 saved = DutErrNumGet();
  if (!DutFileExists(name)) {
    DutErrNumSet(saved);
    return D_TRUE;
  }
  const char *suffix = nullptr;
  bool exists = vq::files::backupSuffix(&suffix);
  VQ_ASSERT(exists, "D_NULL != backup_name_option", kFileLabel);
  if (suffix == nullptr) return D_TRUE;
  std::string backup = std::string(name) + suffix;
  if (DutFileExists(backup.c_str())) {
    DutDeleteFile(backup.c_str());
  } else {
    DutErrNumSet(saved);
  }
  int error = vq::os::fileRename(name, backup.c_str());
  if (error != 0) {
    DutErrNumSetC(error);
    return D_FALSE;
  }
  return D_TRUE;
}

D_EXPORT FILE *DutFOpen(const char *name, const char *mode) {
  if (name == nullptr || mode == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return nullptr;
  }
  int saved = errno;
  errno = 0;
  FILE *stream = std::fopen(name, mode);
  if (stream == nullptr) {
    int error = errno != 0 ? errno : EINVAL;
    errno = saved;
    DutErrNumSetC(error);
  }
  return stream;
}

D_EXPORT FILE *DutOpenFile(const char *name, const char *mode) {
  if (name == nullptr || mode == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return nullptr;
  }
  if (tracing()) DutDebug("Entering DutOpenFile(\"%s\", \"%s\")\n", name, mode);
  vq::ProcessLock lock;
  if (utOpenFiles == nullptr) {
    if (tracing()) DutDebug("  creating deque for open files\n");
    DutDqOpen(&utOpenFiles);
  }
  if (FileNode *node = findByName(name)) {
    if (std::strcmp(node->mode, mode) != 0) {
      DutErrNumSet(D_ERR_TYPE_MISMATCH);
      return nullptr;
    }
    node->ref_count += 1;
    return node->stream;
  }
  if (std::strcmp(mode, "w") == 0 && !DutBackupFile(name)) {
    DutWarning("DutOpenFile: could not backup file %s.\n", name);
  }
  FILE *stream = openStream(name, mode);
  if (stream == nullptr) return nullptr;
  FileNode *new_file = nullptr;
  D_CALLOC(new_file, sizeof(FileNode));
  new_file->fname = copyOf(name, "(new_file->fname)");
  new_file->mode = copyOf(mode, "(new_file->mode)");
  new_file->stream = stream;
  new_file->ref_count = 1;
  DutDqRightInsert(new_file, utOpenFiles->prev);
  return stream;
}

D_EXPORT FILE *DutLookupFile(const char *name) {
  if (name == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return nullptr;
  }
  vq::ProcessLock lock;
  FileNode *node = findByName(name);
  if (node == nullptr) {
    DutErrNumSet(D_ERR_DOESNT_EXIST);
    return nullptr;
  }
  return node->stream;
}

D_EXPORT D_BOOL DutFlushFile(FILE *stream) {
  if (stream == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  int saved = errno;
  errno = 0;
  if (std::fflush(stream) != 0) {
    int error = errno != 0 ? errno : EIO;
    errno = saved;
    DutErrNumSetC(error);
    return D_FALSE;
  }
  errno = saved;
  return D_TRUE;
}

D_EXPORT D_BOOL DutCloseFile(FILE *stream) {
  if (tracing()) {
    DutDebug("Entering DutCloseFile(%" PRIxPTR ")\n", vq::hexOf(stream));
  }
  if (stream == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  vq::ProcessLock lock;
  FileNode *file_node = findByStream(stream);
  if (file_node == nullptr) {
    DutErrNumSet(D_ERR_DOESNT_EXIST);
    return D_FALSE;
  }
  file_node->ref_count -= 1;
  VQ_ASSERT(file_node->ref_count >= 0, "file_node->ref_count >= 0", kFileLabel);
  if (file_node->ref_count > 0) return D_TRUE;
  int result = closeStream(stream);
  if (result != 0) {
    DutWarning("DutCloseFile: fclose (fname %s) returned %ld\n", file_node->fname,
               static_cast<long>(result));
  }
  freeNode(file_node);
  return D_TRUE;
}

D_EXPORT void *DutFileTraverse(D_FILE_TRAV_FUNC func, void *arg) {
  if (func == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return nullptr;
  }
  vq::ProcessLock lock;
  if (utOpenFiles != nullptr) {
    D_DQ_NODE *p = utOpenFiles->next;
    while (p != utOpenFiles) {
      // Read the next link first: the visit may close the file it is given.
      D_DQ_NODE *next = p->next;
      FileNode *n = nodeOf(p);
      if (void *result = func(n->stream, n->fname, n->mode, n->ref_count, arg)) return result;
      p = next;
    }
  }
  DutErrNumSet(0);
  return nullptr;
}

D_EXPORT void DutFileExamine(void) {
  vq::ProcessLock lock;
  FILE *out = DutOpenFile("files.dmp", "w");
  if (out == nullptr) {
    DutWarning("Cannot open files.dmp for writing.\n");
    return;
  }
  std::fprintf(out, "     Open Files\n\n");
  for (D_DQ_NODE *p = utOpenFiles->next; p != utOpenFiles; p = p->next) {
    FileNode *n = nodeOf(p);
    std::fprintf(out, "File Name: <%s>\n", n->fname);
    std::fprintf(out, "File Mode: <%s>\n", n->mode);
    std::fprintf(out, "File Ptr:  <%" PRIdPTR ">\n", vq::decimalOf(n->stream));
    std::fprintf(out, "File Desc: <%d>\n", vq::os::streamDescriptor(n->stream));
    std::fprintf(out, "Ref Count: <%ld>\n\n", static_cast<long>(n->ref_count));
  }
  DutCloseFile(out);
}

D_EXPORT void DutSetFileOpenFunc(D_FILE_OPEN_FUNC func) {
  vq::ProcessLock lock;
  utFileOpenFunc = func;
}

D_EXPORT void DutSetFileCloseFunc(D_FILE_CLOSE_FUNC func) {
  vq::ProcessLock lock;
  utFileCloseFunc = func;
}

D_EXPORT void DutSetFileReadFunc(D_FILE_READ_FUNC func) {
  vq::ProcessLock lock;
  utFileReadFunc = func;
}

D_EXPORT D_FILE_OPEN_FUNC DutGetFileOpenFunc(void) {
  vq::ProcessLock lock;
  return utFileOpenFunc;
}

D_EXPORT D_FILE_CLOSE_FUNC DutGetFileCloseFunc(void) {
  vq::ProcessLock lock;
  return utFileCloseFunc;
}

D_EXPORT D_FILE_READ_FUNC DutGetFileReadFunc(void) {
  vq::ProcessLock lock;
  return utFileReadFunc;
}

D_EXPORT int DutSystem(const char *command) {
  if (command == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return -1;
  }
  DutFlushStdout();
  int error = 0;
  int status = vq::os::runShell(command, &error);
  if (status == -1) DutErrNumSetC(error);
  return status;
}

D_EXPORT D_BOOL DutCatFile(const char *name) {
  if (name == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  FILE *in = DutOpenFile(name, "r");
  if (in == nullptr) {
    DutWarning("DutCatFile: could not open file <%s> for reading.\n", name);
    return D_FALSE;
  }
  for (int c = std::fgetc(in); c != EOF; c = std::fgetc(in)) DutOut("%c", c);
  DutCloseFile(in);
  return D_TRUE;
}

D_EXPORT D_BOOL DutEditFile(const char *name, D_INT4 line) {
  if (name == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  {
    // The editor must see what has been written so far.
    vq::ProcessLock lock;
    if (utOpenFiles != nullptr) {
      for (D_DQ_NODE *p = utOpenFiles->next; p != utOpenFiles; p = p->next) {
        std::fflush(nodeOf(p)->stream);
      }
    }
  }
  return vq::files::runEditor(name, line) ? D_TRUE : D_FALSE;
}

D_EXPORT FILE *DutViewFilePtr(FILE *stream) {
  if (stream == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return nullptr;
  }
  vq::ProcessLock lock;
  FileNode *file_node = findByStream(stream);
  if (file_node == nullptr) {
    DutWarning("DutViewFilePtr: could not find file %" PRIxPTR " (fd %d).\n", vq::hexOf(stream),
               vq::os::streamDescriptor(stream));
    return stream;
  }
  VQ_ASSERT(file_node->mode[0] == 'w' || file_node->mode[0] == 'a',
            "file_node->mode[0] == 'w' || file_node->mode[0] == 'a'", kFileLabel);
  int result = closeStream(stream);
  if (result != 0) {
    DutWarning("DutCloseFile: fclose (fname %s) returned %ld\n", file_node->fname,
               static_cast<long>(result));
  }
  file_node->stream = nullptr;
  vq::files::runEditor(file_node->fname, 1);
  FILE *reopened = openStream(file_node->fname, file_node->mode);
  if (reopened == nullptr) {
    DutWarning("DutViewFilePtr: could not reopen file <%s>.\n", file_node->fname);
    freeNode(file_node);
    return nullptr;
  }
  file_node->stream = reopened;
  return reopened;
}

D_EXPORT int DutReadAtomic(int fd, void *buffer, D_INT4 count) {
  if (buffer == nullptr || count < 0) {
    DutErrNumSet(buffer == nullptr ? D_ERR_NULL_PTR : D_ERR_VAL_INVALID);
    return -1;
  }
  return static_cast<int>(atomically([&](int *error) {
    return vq::os::readRetry(fd, buffer, static_cast<std::size_t>(count), error);
  }));
}

D_EXPORT int DutWriteAtomic(int fd, const void *buffer, D_INT4 count) {
  if (buffer == nullptr || count < 0) {
    DutErrNumSet(buffer == nullptr ? D_ERR_NULL_PTR : D_ERR_VAL_INVALID);
    return -1;
  }
  return static_cast<int>(atomically([&](int *error) {
    return vq::os::writeRetry(fd, buffer, static_cast<std::size_t>(count), error);
  }));
}

D_EXPORT int DutUnlinkAtomic(const char *name) {
  if (name == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return -1;
  }
  return static_cast<int>(atomically([&](int *error) {
    *error = vq::os::fileUnlink(name);
    return *error == 0 ? 0L : -1L;
  }));
}

D_EXPORT int DutFsyncAtomic(int) {
  interruptDisable();
  interruptEnable();
  return 0;
}

}  // extern "C"

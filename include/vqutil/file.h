/**
 * @defgroup file Files and search paths
 * File names, open files, search paths and the dump file.
 *
 * File names use the platform separator '/' and are compared exactly (the
 * file system is case-sensitive); only DutHasExtension ignores case.
 *
 * Open files: DutOpenFile keeps one process-wide registry of open streams
 * keyed by file name, so that a file opened twice with the same mode shares
 * one stream and one reference count; DutCloseFile closes the stream when
 * the count falls to zero. The registry owns its copies of the name and the
 * mode; the stream belongs to the registry until its last close.
 *
 * Thread safety: the registry, the user open/close/read functions, the
 * static name buffers, the check-only switch and the dump file are shared by
 * all threads and touched only under the process-wide lock. A search path
 * is not locked: its owner serialises it.
 *
 * Errors: null arguments set D_ERR_NULL_PTR (3); a failing runtime or
 * system call sets D_ERR_C with the system's errno value (DutErrNumSetC).
 * Success leaves the error number alone unless said otherwise.
 * @{
 */
/**
 * @file
 * @ingroup file
 * @brief Files and search paths (file).
 */
#ifndef VQUTIL_FILE_H
#define VQUTIL_FILE_H

#include "types.h"

/** Debug flag (index into DutGetDebugFlags()) that traces open and close. */
#define D_DEBUG_FILE 1

/** Default maximum base-name length; VQ_MAX_BASE_NAME replaces it. */
#define D_MAX_BASE_NAME_DEFAULT 255

/** Replaces fopen for DutOpenFile: (name, mode) -> stream or null. */
typedef FILE *(*D_FILE_OPEN_FUNC)(const char *name, const char *mode);
/** Replaces fclose for DutCloseFile: 0 on success. */
typedef int (*D_FILE_CLOSE_FUNC)(FILE *stream);
/** Replaces fread for the lexer's input: fread's shape. */
typedef size_t (*D_FILE_READ_FUNC)(void *buffer, size_t size, size_t count, FILE *stream);
/** Visited for each open file by DutFileTraverse; non-null stops the walk. */
typedef void *(*D_FILE_TRAV_FUNC)(FILE *stream, const char *name, const char *mode,
                                  D_INT4 ref_count, void *arg);

/** A search path: an ordered list of directory names (opaque). */
typedef struct D_PATH D_PATH;
/** Visited for each directory by DutPathForEachDir; non-null stops it. */
typedef void *(*D_PATH_FUNC)(const char *directory, void *arg);

D_BEGIN_DECLS

/* ---- Names ------------------------------------------------------------- */

/** 1 when name ends with extension, compared ignoring case; a name shorter
 * than the extension answers 0. */
D_EXPORT D_BOOL DutHasExtension(const char *name, const char *extension);

/** Writes directory (when not null), '/' unless the directory already ends
 * in one, base, then extension unchanged (no dot is added) into destination
 * and returns it. The caller's buffer must be large enough. Null
 * destination or base: D_ERR_NULL_PTR, NULL. */
D_EXPORT char *DutBuildFileName(char *destination, const char *directory, const char *base,
                                const char *extension);

/** Writes base_directory, '/' unless it already ends in one, then
 * sub_directory into destination and returns it. Null arguments:
 * D_ERR_NULL_PTR, NULL. */
D_EXPORT char *DutBuildDirName(char *destination, const char *base_directory,
                               const char *sub_directory);

/** Chooses the base name under which name is stored in directory. *base
 * receives a new allocation of at least 9 bytes (the caller frees it with
 * DutFree). An empty name, or one of at most VQ_MAX_BASE_NAME (default
 * 255) letters, digits and '_', is its own base. Any other name is mapped
 * onto 8 hexadecimal digits; the map file "<digits>.nam" in directory holds
 * the long name on its first line, and hash collisions move on to further
 * digits. When no map file exists yet: with create 1 it is written, with
 * create 0 the mapping is still returned; with the check-only switch
 * (DutGetCheckOnly) set, *base is NULL, D_ERR_DOESNT_EXIST, 0.
 * Errors: null arguments D_ERR_NULL_PTR; create other than 0/1
 * D_ERR_VAL_INVALID; a map file without a line D_ERR_FILE_CORRUPT; a map
 * file that cannot be written D_ERR_C. On failure *base is NULL. */
D_EXPORT D_BOOL DutBuildBaseName(const char *directory, const char *name, char **base,
                                 D_INT4 create);

/** The part of path after the last '/' (the whole path without one), copied
 * into buffer, or with a null buffer into a static buffer (valid until the
 * next such call, filled under the process-wide lock). Null path:
 * D_ERR_NULL_PTR, NULL. */
D_EXPORT char *DutGetFileName(const char *path, char *buffer);

/** Splits path into three new strings (free each with DutFree): the
 * directory without its final '/' ("/" for the root, "" when none), the
 * base, and the extension from the last '.' of the file part including the
 * dot ("" when none; a leading dot starts the base, not an extension).
 * DutBuildFileName(dir, base, ext) rebuilds a path that has a directory.
 * Null arguments: D_ERR_NULL_PTR, 0. */
D_EXPORT D_BOOL DutFileExplodeName(const char *path, char **dir_ptr, char **base_ptr,
                                   char **ext_ptr);

/* ---- Tests and simple operations --------------------------------------- */

/** 1 when the file exists; else D_ERR_C (the system's errno value), 0. */
D_EXPORT D_BOOL DutFileExists(const char *name);
/** 1 when the file may be written; else D_ERR_C, 0. */
D_EXPORT D_BOOL DutFileWritable(const char *name);
/** access() with the runtime's modes (0 exists, 2 write, 4 read, 6 both):
 * 0 or -1 with D_ERR_C. */
D_EXPORT int DutMvsAccess(const char *name, int mode);
/** unlink(): 0 or -1 with D_ERR_C. */
D_EXPORT int DutDeleteFile(const char *name);
/** 1 and the file's size in bytes; no such file D_ERR_C, 0; a size beyond
 * 32 bits D_ERR_VAL_TOO_LARGE, 0. */
D_EXPORT D_BOOL DutFileGetSize(const char *name, D_INT4 *size);

/** Moves an existing file aside before it is rewritten: to the name
 * followed by the string of the option "backup_name" (an existing file of
 * that name is deleted first). 1 when done, when the file does not exist
 * or when the option has no value; a failing rename D_ERR_C, 0. */
D_EXPORT D_BOOL DutBackupFile(const char *name);

/* ---- Open-file registry ------------------------------------------------ */

/** fopen(); null arguments D_ERR_NULL_PTR, failure D_ERR_C, NULL. */
D_EXPORT FILE *DutFOpen(const char *name, const char *mode);

/** The registered stream for name. Already open with the same mode (exact
 * comparison): the same stream, one more reference. Open with another
 * mode: D_ERR_TYPE_MISMATCH, NULL. Otherwise the file is opened (mode "w"
 * first takes a backup, DutBackupFile; a failed backup only warns
 * "DutOpenFile: could not backup file %s.\n") with the user open function
 * or DutFOpen, and registered with one reference. Null arguments:
 * D_ERR_NULL_PTR. Close every successful open with DutCloseFile. */
D_EXPORT FILE *DutOpenFile(const char *name, const char *mode);
/** The registered stream for name, or D_ERR_DOESNT_EXIST, NULL. */
D_EXPORT FILE *DutLookupFile(const char *name);
/** fflush(); null D_ERR_NULL_PTR, failure D_ERR_C, 0. */
D_EXPORT D_BOOL DutFlushFile(FILE *stream);
/** Drops one reference to a stream from DutOpenFile and closes it (user
 * close function or fclose) with the last one; a failing close only warns
 * "DutCloseFile: fclose (fname %s) returned %ld\n". Null D_ERR_NULL_PTR;
 * an unregistered stream D_ERR_DOESNT_EXIST; 0. */
D_EXPORT D_BOOL DutCloseFile(FILE *stream);
/** Calls func for each open file in the order they were opened, under the
 * process-wide lock; returns the first non-null result at once. At the end
 * the error number is set to 0 and NULL is returned. */
D_EXPORT void *DutFileTraverse(D_FILE_TRAV_FUNC func, void *arg);
/** Writes the list of open files to "files.dmp" in the current directory
 * (opened with mode "w" through DutOpenFile). */
D_EXPORT void DutFileExamine(void);

/** @{ */
/** Replace the functions that open, close and read files (null restores
 * the defaults); the getters answer the current user function or NULL. */
D_EXPORT void DutSetFileOpenFunc(D_FILE_OPEN_FUNC func);
D_EXPORT void DutSetFileCloseFunc(D_FILE_CLOSE_FUNC func);
D_EXPORT void DutSetFileReadFunc(D_FILE_READ_FUNC func);
D_EXPORT D_FILE_OPEN_FUNC DutGetFileOpenFunc(void);
D_EXPORT D_FILE_CLOSE_FUNC DutGetFileCloseFunc(void);
D_EXPORT D_FILE_READ_FUNC DutGetFileReadFunc(void);
/** @} */

/* ---- Viewing and editing ----------------------------------------------- */

/** Runs a command line through the shell and waits: the shell's status
 * (0 when the command succeeded), or -1 with D_ERR_C when no shell could be
 * started. Null: D_ERR_NULL_PTR, -1. */
D_EXPORT int DutSystem(const char *command);

/** Writes the file to the library output (DutOut). Null D_ERR_NULL_PTR; a
 * file that cannot be opened warns "DutCatFile: could not open file <%s>
 * for reading.\n"; 0. */
D_EXPORT D_BOOL DutCatFile(const char *name);

/** Flushes every open stream, then opens name in the editor: the option
 * "editor", else the environment variable EDITOR, else "vi". "_cat" writes
 * the file with DutCatFile; "emacs" runs "emacs +<line> <name>"; any other
 * editor runs "<editor> <name>" through DutSystem. 1 when the editor ran
 * and succeeded; a failing editor D_ERR_VAL_INVALID, 0; null name
 * D_ERR_NULL_PTR. */
D_EXPORT D_BOOL DutEditFile(const char *name, D_INT4 line);

/** Shows a stream open for writing or appending in the editor: closes it,
 * runs the editor on its file, reopens it in its mode and returns the new
 * stream (the registry follows). An unregistered stream warns
 * "DutViewFilePtr: could not find file %lx (fd %d).\n" and comes back
 * unchanged; a failing reopen warns "DutViewFilePtr: could not reopen file
 * <%s>.\n" and gives NULL (the registration is dropped). */
D_EXPORT FILE *DutViewFilePtr(FILE *stream);

/* ---- Search paths ------------------------------------------------------ */

/** An empty path; the caller destroys it with DutPathDestroy. */
D_EXPORT D_PATH *DutPathCreate(void);
/** Appends a copy of directory. Null arguments D_ERR_NULL_PTR, 0. */
D_EXPORT D_BOOL DutPathAddDir(D_PATH *path, const char *directory);
/** Removes the first entry equal to directory; none D_ERR_DOESNT_EXIST. */
D_EXPORT D_BOOL DutPathDeleteDir(D_PATH *path, const char *directory);
/** Calls func for each directory in order; the first non-null result. */
D_EXPORT void *DutPathForEachDir(D_PATH *path, D_PATH_FUNC func, void *arg);
/** Frees every entry and the path. */
D_EXPORT void DutPathDestroy(D_PATH *path);
/** The first directory of path (in order) holding name, joined with the
 * name; with a null path, name itself when it exists. Written into buffer,
 * or with a null buffer into a static buffer (valid until the next such
 * call). Not found: NULL and an empty caller buffer (the error number is
 * the last failed DutFileExists). Null name: NULL. */
D_EXPORT char *DutPathFindFile(D_PATH *path, const char *name, char *buffer);

/* ---- Temporary directory, directory listing ---------------------------- */

/** Writes the directory for temporary files, ending in '/': "./" when the
 * current directory is writable, else $HOME/ (or $TEMP/ without HOME) when
 * writable, else "/tmp/". 1 when the chosen directory is writable. */
D_EXPORT D_BOOL DutGetTmpFilePath(char *destination);

/** A new array of new strings, one per entry of directory other than "."
 * and "..", sorted by name; free each string and then the array with
 * DutFree. An empty directory gives a NULL array and count 0. Null
 * arguments D_ERR_NULL_PTR; a directory that cannot be read D_ERR_C; 0. */
D_EXPORT D_BOOL DutDirGetFileNames(const char *directory, char ***names, D_INT4 *count);

/* ---- Interrupt-safe I/O ------------------------------------------------- */

/** @{ */
/** read(), write(), unlink() with the console interrupt ignored for the
 * call's duration (other signals interrupting the call are retried); the
 * library's interrupt handler is installed afterwards. Results as the
 * system calls; a failure sets D_ERR_C, which the handler's reinstallation
 * does not disturb. DutFsyncAtomic does nothing between the two steps and
 * returns 0. */
D_EXPORT int DutReadAtomic(int fd, void *buffer, D_INT4 count);
D_EXPORT int DutWriteAtomic(int fd, const void *buffer, D_INT4 count);
D_EXPORT int DutUnlinkAtomic(const char *name);
D_EXPORT int DutFsyncAtomic(int fd);
/** @} */

/* ---- The dump file ------------------------------------------------------ */

/** @} */
/** @addtogroup file
 *
 * @par The dump file
 * The per-process dump file "dump<pid>.dmp" in the temporary directory
 * (DutGetTmpFilePath). The name is fixed by the first open and kept for
 * the life of the process. Every operation holds the process-wide lock for
 * its whole duration.
 * @{
 */

/** Opens the dump file, deleting any old one (mode "w"). Already open:
 * D_ERR_ALREADY_EXISTS, NULL; no writable temporary directory:
 * D_ERR_DOESNT_EXIST, NULL; a failed first open forgets the name. */
D_EXPORT FILE *DutDumpOpen(void);
/** Same, keeping the existing contents (mode "a"). */
D_EXPORT FILE *DutDumpOpenAppend(void);
/** @{ */
/** Writes formatted text to the dump file, opening (and truncating) it when
 * it is not open; when it cannot be opened the warning "DutDumpOutVa: dump
 * file is not open.\n" is given and the text goes to the library output.
 * A null format is an assertion failure. */
D_EXPORT void DutDumpOut(const char *format, ...) D_PRINTF_FORMAT(1, 2);
D_EXPORT void DutDumpOutVa(const char *format, va_list args) D_PRINTF_FORMAT(1, 0);
/** @} */
/** Closes the dump file (the name is kept); not open D_ERR_DOESNT_EXIST, 0. */
D_EXPORT D_BOOL DutDumpClose(void);
/** Closes the dump file if open and shows it in the editor at line 1. No
 * name yet: D_ERR_DOESNT_EXIST, 0. */
D_EXPORT D_BOOL DutDumpView(void);
/** Deletes the closed dump file. No name yet D_ERR_DOESNT_EXIST; still open
 * D_ERR_ALREADY_EXISTS; deletion failing D_ERR_C; 0. */
D_EXPORT D_BOOL DutDumpRemove(void);
/** Copies the dump file's name into destination. Null D_ERR_NULL_PTR; no
 * name yet D_ERR_DOESNT_EXIST; 0. */
D_EXPORT D_BOOL DutDumpGetName(char *destination);

D_END_DECLS

/** @} */
#endif /* VQUTIL_FILE_H */

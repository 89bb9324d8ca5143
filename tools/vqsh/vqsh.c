/*
 * vqsh: the interactive shell of the vq runtime.
 *
 * Initialises the library as process type "vqsh", loads the standard
 * command files, runs the command files and -c command strings given on the
 * command line, and otherwise reads commands from standard input (with line
 * editing when that is a terminal).
 */
#define _POSIX_C_SOURCE 200809L

#include <errno.h>
#include <limits.h>
#include <setjmp.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#ifdef _WIN32
/* The runtime's setenv; a build tree is not recognised by its path there. */
#define setenv(name, value, overwrite) _putenv_s((name), (value))
#undef VQSH_BUILD_DIR
#endif

#ifdef VQSH_HAVE_LIBEDIT
#include <editline/readline.h>
#endif

#include "vqutil/util.h"

#ifndef VQSH_VERSION
#define VQSH_VERSION "unknown"
#endif

static void usage(FILE *out) {
  fprintf(out,
          "Usage: vqsh [options] [command-file ...]\n"
          "\n"
          "The interactive shell of the vq runtime library.\n"
          "\n"
          "Options:\n"
          "  -c COMMANDS   run the command line COMMANDS (may be repeated)\n"
          "  -i            read commands from standard input after the files\n"
          "                and -c strings\n"
          "  -q            do not load the standard command files\n"
          "  -h, --help    print this help and exit\n"
          "  --version     print the version and exit\n"
          "\n"
          "Without command files or -c strings vqsh reads commands from\n"
          "standard input. Type 'help' at the prompt for the commands.\n"
          "\n"
          "Environment:\n"
          "  VQHOME        the data directory (help files, standard command\n"
          "                files); defaults to the installed data directory\n"
          "  HOME          a vqsh.cm there is run at start-up\n"
          "  VQDEBUGFILENAME  the debug file (default: standard error)\n");
}

/* The data directory: the installed one, or the source tree's when this
 * program runs from its build tree. */
static const char *defaultDataDir(void) {
#if defined(VQSH_BUILD_DIR) && defined(VQSH_SOURCE_DATA_DIR)
  char self[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
  if (n > 0) {
    self[n] = '\0';
    if (strncmp(self, VQSH_BUILD_DIR, strlen(VQSH_BUILD_DIR)) == 0) return VQSH_SOURCE_DATA_DIR;
  }
#endif
#ifdef VQSH_INSTALL_DATA_DIR
  return VQSH_INSTALL_DATA_DIR;
#else
  return ".";
#endif
}

static int readable(const char *path) { return access(path, R_OK) == 0; }

/* The standard command files: the library's rule, except that a missing
 * local vqsh.cm is not worth a message at every start. */
static void loadStandardFiles(void) {
  if (readable("vqsh.cm") || readable("vqsh.cmd")) {
    DutCommandParseStd("vqsh", "vqsh.cm");
    return;
  }
  char path[PATH_MAX];
  const char *home = getenv("VQHOME");
  if (home != NULL) {
    snprintf(path, sizeof path, "%s/standard/vqsh.cm", home);
    if (readable(path)) DutCommandParseFile(path);
  }
  home = getenv("HOME");
  if (home != NULL) {
    snprintf(path, sizeof path, "%s/vqsh.cm", home);
    if (readable(path)) DutCommandParseFile(path);
  }
}

#ifdef VQSH_HAVE_LIBEDIT
/* Line editing for a terminal: libedit's readline with its own history,
 * beside the library's (which !! and history use). */
static char *editLine(const char *prompt, void *arg) {
  (void)arg;
  errno = 0;
  char *line = readline(prompt != NULL ? prompt : "");
  if (line != NULL && line[0] != '\0') add_history(line);
  return line;
}
#endif

/* What the command line asks for; static so that it survives the long jump
 * that D_INIT arms in main. */
static struct {
  const char *commands[64];
  int num_commands;
  int interactive_after;
  int load_standard;
  int first_file;
} opts = {{0}, 0, 0, 1, 0};

/* 0 to go on, else the exit status + 1. */
static int parseArgs(int argc, char **argv) {
  opts.first_file = argc;
  for (int i = 1; i < argc; ++i) {
    if (strcmp(argv[i], "-h") == 0 || strcmp(argv[i], "--help") == 0) {
      usage(stdout);
      return 1;
    }
    if (strcmp(argv[i], "--version") == 0) {
      printf("vqsh %s\n", VQSH_VERSION);
      return 1;
    }
    if (strcmp(argv[i], "-c") == 0) {
      if (i + 1 >= argc || opts.num_commands == (int)(sizeof opts.commands / sizeof opts.commands[0])) {
        usage(stderr);
        return 3;
      }
      opts.commands[opts.num_commands++] = argv[++i];
    } else if (strcmp(argv[i], "-i") == 0) {
      opts.interactive_after = 1;
    } else if (strcmp(argv[i], "-q") == 0) {
      opts.load_standard = 0;
    } else if (strcmp(argv[i], "--") == 0) {
      opts.first_file = i + 1;
      break;
    } else if (argv[i][0] == '-' && argv[i][1] != '\0') {
      fprintf(stderr, "vqsh: unknown option %s\n", argv[i]);
      usage(stderr);
      return 3;
    } else {
      opts.first_file = i;
      break;
    }
  }
  return 0;
}

static int run(int argc, char **argv) {
  if (opts.load_standard) loadStandardFiles();
  for (int i = 0; i < opts.num_commands; ++i) DutCommandParseStr(opts.commands[i]);
  for (int i = opts.first_file; i < argc; ++i) {
    if (!DutCommandParseFile(argv[i])) return 1;
  }
  if ((opts.num_commands > 0 || opts.first_file < argc) && !opts.interactive_after) return 0;
  int terminal = isatty(STDIN_FILENO);
#ifdef VQSH_HAVE_LIBEDIT
  if (terminal) {
    /* The interrupt key must reach the library's SIGINT handler once and
     * end the read with EINTR. libedit's own handlers would be swapped in
     * around every line and pass the key on with kill(0, SIGINT), which
     * hits every process of the foreground group a second time. */
    rl_catch_signals = 0;
    DutCommandSetLineReader(editLine, NULL);
  }
#endif
  DutCommandMainLoop();
  /* Control-D leaves the cursor after the prompt: give the caller's shell
   * a fresh line. */
  if (terminal) DutOut("\n");
  return 0;
}

int main(int argc, char **argv) {
  int early = parseArgs(argc, argv);
  if (early != 0) return early - 1;
  if (getenv("VQHOME") == NULL) setenv("VQHOME", defaultDataDir(), 1);
  /* An interactive shell keeps its debug output on standard error rather
   * than leaving a vqsh.dbg in every directory it is started from. */
  if (getenv("VQDEBUGFILENAME") == NULL) setenv("VQDEBUGFILENAME", "stderr", 1);
  D_INIT("vqsh");
  return run(argc, argv);
}
